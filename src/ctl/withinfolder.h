// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filebytes.h"

//! Whether a folder is another one or lies below it, by whatever name.
bool isWithin(const Archive::Descriptor &folder, const Archive::Descriptor &other);
