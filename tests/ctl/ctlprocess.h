// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QStringList>

//! What a run of the tool has left.
struct CtlRun {
    int status = -1; //!< negative where a signal has ended it
    QByteArray out;
    QByteArray errors;

    //! The lines of the output, each of which must be a JSON object; ends the test otherwise.
    [[nodiscard]] QList<QJsonObject> objects() const;
};

//! The executable, which the environment variable SEL_CTL names.
QString ctlProgram();
//! Runs it to its end.
CtlRun runCtl(const QStringList &arguments);
//! Runs a line of the shell, in which $CTL is the executable.
CtlRun runShell(const QString &line);

//! What to put in front of a command of the shell so that modes of files hold for root, too.
QString asOrdinaryUser();

//! A catalogue in a file of its own, with the events that the tests store.
QString testCatalogue();
//! A record of its event 9, which has a text.
QByteArray message(quint64 logNr, const QByteArray &text);
//! Such records from a number to another, both included; each has its number as text.
QByteArray messages(quint64 from, quint64 to, int textSize = 40);
