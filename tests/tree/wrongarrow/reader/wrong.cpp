// SPDX-License-Identifier: Apache-2.0

// The reader must not know the writer: the check of includes has to say so.
#include "binlog/binaryloginterface.h"
