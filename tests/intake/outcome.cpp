// SPDX-License-Identifier: Apache-2.0
#include "intake/outcome.h"

#include "logformat/encoding.h"
#include "rendering/eventtext.h"
#include "support/literals.h"

#include <QtDebug>

namespace
{

thread_local QString written; //!< by messages; QtDBus's thread has some, too
QtMessageHandler before = nullptr;

void collect(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtDebugMsg) {
        written += message + u'\n';
    } else if (!message.startsWith("QDBusSignature: invalid signature"_s)) { // QtDBus: an empty one
        before(type, context, message);
    }
}

void appendValue(QString &out, const QVariant &value)
{
    written.clear();
    QByteArray bytes;
    const bool isKnown = LogFormat::appendValue(bytes, value);
    out += "\n"_s + QString::fromLatin1(value.typeName()) + (isKnown ? " known "_s : " unknown "_s)
        + QString::fromLatin1(bytes.toHex()) + " '"_s + liveValueText(value) + "' "_s;
    QDebug(&out) << value;
    out += written;
    if (value.userType() == qMetaTypeId<WrappedValue>()) {
        appendValue(out, value.value<WrappedValue>().content);
    }
}

} // namespace

QString described(int id, const QString &path, const QList<QVariant> &values)
{
    QString out = QString::number(id) + u' ' + path + u' ' + QString::number(values.size());
    for (const QVariant &value : values) {
        appendValue(out, value);
    }
    return out;
}

MessageCollector::MessageCollector()
{
    before = qInstallMessageHandler(collect);
}

MessageCollector::~MessageCollector()
{
    qInstallMessageHandler(before);
}
