// SPDX-License-Identifier: Apache-2.0
#include "ctl/settingscommand.h"

#include "archive/archivefolder.h"
#include "ctl/busname.h"
#include "ctl/consent.h"
#include "ctl/daemoncalls.h"
#include "ctl/jsonobject.h"
#include "ctl/messages.h"

#include <QStringList>

#include <algorithm>
#include <iterator>
#include <limits>
#include <optional>

#include <arpa/inet.h>

namespace
{

struct Setting {
    const char *name;
    const char *type; //!< on the bus
    const char *key;  //!< in the configuration service; null for one that is not kept
    //! Nothing where what is typed does not fit.
    std::optional<QVariant> (*valueOf)(const QString &typed);
    const char *values; //!< what fits
};

std::optional<QVariant> switchOf(const QString &typed)
{
    const bool isOn = typed == QLatin1String("true") || typed == QLatin1String("1");
    const bool isOff = typed == QLatin1String("false") || typed == QLatin1String("0");
    return isOn || isOff ? std::optional<QVariant>(isOn) : std::nullopt;
}

/*!
 * What is taken literally everywhere: the daemon also takes short and octal addresses, and
 * they mean others than they seem to.
 */
std::optional<QVariant> addressOf(const QString &typed)
{
    constexpr QLatin1Char scope('%'); // in front of an interface, of IPv6 alone
    const QByteArray host = typed.section(scope, 0, 0).toLatin1();
    in6_addr binary{};
    const bool isIpv4 = inet_pton(AF_INET, typed.toLatin1().constData(), &binary) == 1;
    const bool isIpv6
        = inet_pton(AF_INET6, host.constData(), &binary) == 1 && !typed.endsWith(scope);
    return typed.isEmpty() || isIpv4 || isIpv6 ? std::optional<QVariant>(typed) : std::nullopt;
}

std::optional<QVariant> languageOf(const QString &typed)
{
    return typed.isEmpty() ? std::nullopt : std::optional<QVariant>(typed);
}

std::optional<QVariant> levelOf(const QString &typed)
{
    bool isNumber = false;
    const int number = typed.toInt(&isNumber);
    const bool isBare = typed == typed.trimmed();
    return isNumber && isBare ? std::optional<QVariant>(number) : std::nullopt;
}

//! Kept by the daemon, and ignored, where it is below 1.
std::optional<QVariant> tailOf(const QString &typed)
{
    const std::optional<QVariant> number = levelOf(typed);
    return number && number->toInt() >= 1 ? number : std::nullopt;
}

constexpr char switchValues[] = "true, false, 1 or 0";

constexpr Setting settings[] = {
    {"logLocal", "b", "SystemeventLogLocal", switchOf, switchValues},
    {"logNetwork", "b", "SystemeventLogNetwork", switchOf, switchValues},
    {"logNetworkAddress", "s", "SystemeventLogNetworkaddress", addressOf,
     "an IPv4 address of four decimal numbers, an IPv6 address, or empty for no receiver"},
    {"logNetworkLang", "s", nullptr, languageOf, "the code of a language, such as en"},
    {"logtail", "i", "SystemeventLogtail", tailOf, "a whole number from 1 to 2147483647"},
    {"loglevel", "i", "SystemeventLoglevel", levelOf,
     "a whole number from -2147483648 to 2147483647"},
};

// Showing.

//! What the configuration service has stored; once it fails it is not asked again.
class StoredTexts
{
public:
    StoredTexts(Bus &theBus, bool isQuiet)
        : bus(theBus)
        , quiet(isQuiet)
    {
    }

    //! Empty where nothing is stored; nothing where that cannot be known.
    std::optional<QString> text(const char *key)
    {
        if (isUnknown) {
            return std::nullopt;
        }
        const BusAnswer answer = bus.call({BusName::configService,
                                           BusName::configPath,
                                           BusName::configInterface,
                                           "getTrimmed",
                                           {{"s", QLatin1String(key)}}});
        isUnknown = !answer.isDone() || !answer.value || answer.value->type != "s";
        if (isUnknown && !quiet) {
            Messages::tell(
                QStringLiteral("what is stored cannot be seen: %1: %2")
                    .arg(QLatin1String(BusName::configService),
                         answer.isDone() ? QStringLiteral("the answer is no text") : answer.text));
        }
        return isUnknown ? std::nullopt : std::optional<QString>(answer.value->value.toString());
    }

private:
    Bus &bus;
    bool quiet;
    bool isUnknown = false;
};

void appendText(std::string &out, const QString &text, size_t columns)
{
    const QByteArray utf8 = text.isEmpty() ? QByteArray("-") : text.toUtf8();
    std::string shown;
    Messages::appendPrintable(shown, {utf8.constData(), size_t(utf8.size())});
    out += shown;
    out.append(columns > shown.size() ? columns - shown.size() : 0, ' ');
    out += ' ';
}

constexpr size_t nameColumns = 17;
constexpr size_t valueColumns = 25;

void appendRow(std::string &out, const QString &name, const QString &now, const QString &stored)
{
    appendText(out, name, nameColumns);
    appendText(out, now, valueColumns);
    appendText(out, stored, 0);
    out.back() = '\n';
}

void appendObject(std::string &out, const Setting &setting, const QVariant &now,
                  const std::optional<QString> &stored)
{
    JsonObject object(out);
    object.add("name", std::string_view(setting.name));
    switch (*setting.type) {
    case 'b':
        object.addFlag("value", now.toBool());
        break;
    case 'i':
        object.addNumber("value", now.toInt());
        break;
    default:
        object.add("value", now.toString());
    }
    stored ? object.add("stored", *stored) : object.addNull("stored");
    object.end();
    out += '\n';
}

QString storedText(const Setting &setting, const QVariant &now,
                   const std::optional<QString> &stored)
{
    if (!setting.key) {
        return QStringLiteral("(not kept)");
    }
    if (!stored) {
        return QStringLiteral("?");
    }
    const bool isLevel = *setting.type == 'i' && !stored->isEmpty();
    return isLevel && *stored != now.toString()
        ? *stored + QStringLiteral(" (from the next start on)")
        : *stored;
}

ExitStatus show(const Plan &plan, OutputStream &out, Bus &bus)
{
    StoredTexts texts(bus, plan.output.isQuiet);
    const bool isText = plan.output.format == Format::Text;
    if (isText) {
        appendRow(out.text(), QStringLiteral("SETTING"), QStringLiteral("NOW"),
                  QStringLiteral("STORED"));
    }
    for (const Setting &setting : settings) {
        const QLatin1String name(setting.name);
        if (plan.settings.name && *plan.settings.name != name) {
            continue;
        }
        const BusAnswer answer = DaemonCalls::get(bus, setting.name);
        if (!answer.value) {
            tellFailure(answer, name, BusName::adminGroup);
            return ExitStatus::Failed;
        }
        const QVariant now = answer.value->value;
        const std::optional<QString> stored = setting.key ? texts.text(setting.key) : std::nullopt;
        if (isText) {
            appendRow(out.text(), name, now.toString(), storedText(setting, now, stored));
        } else {
            appendObject(out.text(), setting, now, stored);
        }
    }
    return ExitStatus::Done;
}

// Changing.

/*!
 * How many files a smaller logtail deletes: those above it that are there. All that there
 * may be, where the folder cannot be looked into.
 */
qint64 filesDeleted(const QString &folder, int before, int logtail)
{
    Archive::Folder log(folder);
    if (!log.open()) {
        return std::max(before - logtail, 0);
    }
    return std::count_if(log.files().begin(), log.files().end(), [&](const auto &file) {
        return file.index > logtail && file.index <= before;
    });
}

void remarkOnLevel(int level, int now)
{
    QString text = QStringLiteral("loglevel counts from the daemon's next start on; until then it "
                                  "stays %1")
                       .arg(now);
    if (level >= 1) {
        text += QStringLiteral(". Writing it also sets logtail to %1, at once").arg(level);
    }
    Messages::tell(text);
}

void remarkOnLanguage()
{
    Messages::tell(QStringLiteral("logNetworkLang is not kept: when the daemon starts again it is "
                                  "en. What the daemon stores with it is the network address, "
                                  "under an empty key"));
}

//! Done where the change is harmless or agreed to.
ExitStatus prepare(const Plan &plan, const Setting &setting, const QVariant &value, Bus &bus)
{
    const QLatin1String name(setting.name);
    const bool isLevel = name == QLatin1String("loglevel");
    if (name == QLatin1String("logNetworkLang") && !plan.output.isQuiet) {
        remarkOnLanguage();
    }
    if (!isLevel && name != QLatin1String("logtail")) {
        return ExitStatus::Done;
    }
    const BusAnswer now = DaemonCalls::get(bus, setting.name);
    const BusAnswer tail = DaemonCalls::get(bus, "logtail");
    if (!now.value || !tail.value) {
        tellFailure(now.value ? tail : now, name, BusName::adminGroup);
        return ExitStatus::Failed;
    }
    if (isLevel && !plan.output.isQuiet) {
        remarkOnLevel(value.toInt(), now.value->value.toInt());
    }
    if (value.toInt() < 1) {
        return ExitStatus::Done; // a level that leaves logtail alone
    }
    const qint64 files = filesDeleted(plan.source.folder, tail.value->value.toInt(), value.toInt());
    return files == 0 ? ExitStatus::Done
                      : askConsent(plan.consent,
                                   QStringLiteral("this deletes the %1 oldest log files, zib%2.log "
                                                  "and above")
                                       .arg(files)
                                       .arg(value.toLongLong() + 1));
}

ExitStatus change(const Plan &plan, const Setting &setting, const QVariant &value, Bus &bus)
{
    const ExitStatus prepared = prepare(plan, setting, value, bus);
    if (prepared != ExitStatus::Done) {
        return prepared;
    }
    const BusAnswer answer = DaemonCalls::set(bus, setting.name, {setting.type, value});
    if (!answer.isDone()) {
        tellFailure(answer, QStringLiteral("%1 is not changed").arg(QLatin1String(setting.name)),
                    BusName::adminGroup);
        return ExitStatus::Failed;
    }
    if (setting.key && !plan.output.isQuiet && !bus.hasOwner(BusName::configService)) {
        Messages::tell(
            QStringLiteral("%1 is changed, and may not be kept over a start: %2 is not there")
                .arg(QLatin1String(setting.name), QLatin1String(BusName::configService)));
    }
    return ExitStatus::Done;
}

[[noreturn]] void refuse(const QString &reason)
{
    throw WrongUsage{reason.toStdString()};
}

const Setting &settingNamed(const QString &name)
{
    const auto *const found
        = std::find_if(std::begin(settings), std::end(settings),
                       [&name](const Setting &each) { return name == QLatin1String(each.name); });
    if (found == std::end(settings)) {
        refuse(QStringLiteral("there is no setting \"%1\"; there are %2")
                   .arg(name, settingNames().join(QStringLiteral(", "))));
    }
    return *found;
}

QVariant valueOf(const Setting &setting, const QString &typed)
{
    const std::optional<QVariant> value = setting.valueOf(typed);
    if (!value) {
        refuse(QStringLiteral("\"%1\" does not fit %2, which takes %3")
                   .arg(typed, QLatin1String(setting.name), QLatin1String(setting.values)));
    }
    return *value;
}

} // namespace

QStringList settingNames()
{
    QStringList names;
    for (const Setting &each : settings) {
        names.append(QLatin1String(each.name));
    }
    return names;
}

ExitStatus runSettings(const Plan &plan, OutputStream &out)
{
    const Setting *const setting
        = plan.settings.name ? &settingNamed(*plan.settings.name) : nullptr;
    const bool isChange = setting && plan.settings.value;
    const QVariant value = isChange ? valueOf(*setting, *plan.settings.value) : QVariant();
    Bus bus;
    if (!bus.openToDaemon()) {
        return ExitStatus::Failed;
    }
    return isChange ? change(plan, *setting, value, bus) : show(plan, out, bus);
}
