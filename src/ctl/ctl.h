// SPDX-License-Identifier: Apache-2.0
#pragma once

//! The command-line tool: takes the arguments of main() and gives its result.
int runCtl(int argc, char **argv);
