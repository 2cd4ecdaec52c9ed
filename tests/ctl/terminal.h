// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/ctlprocess.h"

#include <QString>
#include <QStringList>

//! Runs the tool with a terminal as its standard input and error, where somebody types a text.
CtlRun runCtlOnTerminal(const QStringList &arguments, const QByteArray &typed);
