// SPDX-License-Identifier: Apache-2.0
#include "checks.h"

#include "support/literals.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace
{

QStringList &messages()
{
    static QStringList all;
    return all;
}

void keepMessage(QtMsgType type, const QMessageLogContext & /*context*/, const QString &message)
{
    static const QString missing = "QString::arg: Argument missing"_s;
    if (type == QtDebugMsg) {
        messages().append(message);
    } else if (type == QtWarningMsg && message.startsWith(missing)) {
        messages().append(missing); // how it goes on is Qt's
    } else if (type == QtFatalMsg) {
        (void)fprintf(stderr, "%s\n", qPrintable(message));
    }
}

//! The part from shortly before where two texts differ.
QString excerpt(const QString &text, QString::size_type difference)
{
    constexpr QString::size_type before = 60;
    constexpr QString::size_type shown = 300;
    return QString::number(text.size()) + " characters, ..."_s
        + text.mid(std::max<QString::size_type>(difference - before, 0), shown);
}

} // namespace

void prepare()
{
    static int argumentCount = 1;
    static char name[] = "fuzz";
    static char *arguments[] = {name, nullptr};
    static const QCoreApplication application(argumentCount, arguments);
    static const QtMessageHandler previous = qInstallMessageHandler(keepMessage);
    (void)previous;
    messages().clear();
}

QStringList takeMessages()
{
    return std::exchange(messages(), {});
}

void fail(const QString &what)
{
    (void)fprintf(stderr, "%s\n", qPrintable(what));
    abort();
}

void require(bool holds, const char *what)
{
    if (!holds) {
        fail(QString::fromUtf8(what));
    }
}

void requireEqual(const QString &expected, const QString &found, const char *what)
{
    if (expected == found) {
        return;
    }
    const auto parting
        = std::mismatch(expected.cbegin(), expected.cend(), found.cbegin(), found.cend());
    const auto difference = QString::size_type(parting.first - expected.cbegin());
    fail(QString::fromUtf8(what) + "\nexpected "_s + excerpt(expected, difference) + "\nfound    "_s
         + excerpt(found, difference));
}
