// SPDX-License-Identifier: Apache-2.0
#pragma once

class QCoreApplication;

/*!
 * Runs the daemon on the system bus until the application quits and returns the
 * exit status. Ends the process with a fatal message when the bus name is taken
 * or the log directory or the catalogue cannot be had.
 */
int runDaemon(QCoreApplication &application);
