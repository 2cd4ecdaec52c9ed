// SPDX-License-Identifier: Apache-2.0
#include "output/loginterface.h"

LogInterface::~LogInterface() = default;
