// SPDX-License-Identifier: Apache-2.0
#include "binlog/loginterface.h"

LogInterface::~LogInterface() = default;
