// SPDX-License-Identifier: Apache-2.0
#include "ctl/cataloguedocument.h"

#include "archive/valuefit.h"
#include "catalog/systemeventcatalogue.h"

#include <QIODevice>
#include <QSet>
#include <QXmlStreamReader>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <tuple>

namespace
{

using Place = CatalogueDocument::Place;
using Oddity = CatalogueDocument::Oddity;
using Stop = CatalogueDocument::Stop;

// What a catalogue does not come near to, and what keeps a file that is none from taking
// minutes: the attributes of an element are compared with one another, and each element with
// what a document type says.
constexpr qint64 maxPiece = 262144; //!< of the file, from one element to the next
constexpr size_t maxDepth = 100;
constexpr int maxAttributes = 100;
constexpr int maxElements = 250000;
constexpr int maxDocumentType = 4096; //!< characters
constexpr int maxProlog = 65536;      //!< bytes that are looked through for the root
constexpr int maxReferences = 1000; //!< where there are entities; each makes up to 4,096 characters

//! Gives the bytes of a file in the pieces that are asked for, and ends where one grows too long.
class Bytes : public QIODevice
{
public:
    explicit Bytes(const QByteArray &content)
        : all(content)
    {
        open(ReadOnly | Unbuffered);
    }

    //! What comes from here on is a piece of its own.
    void beginPiece() { pieceBegin = next; }
    [[nodiscard]] bool isPieceTooLong() const { return tooLong; }
    [[nodiscard]] bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 maxLength) override
    {
        tooLong = tooLong || next - pieceBegin > maxPiece;
        const qint64 length = tooLong ? 0 : std::min(maxLength, qint64(all.size()) - next);
        std::memcpy(data, all.constData() + next, size_t(length));
        next += length;
        return length;
    }
    qint64 writeData(const char * /*data*/, qint64 /*length*/) override { return -1; }

private:
    const QByteArray &all;
    qint64 next = 0;
    qint64 pieceBegin = 0;
    bool tooLong = false;
};

//! What is said of an error, and what to do about it where that is not plain.
QString errorText(const QXmlStreamReader &xml)
{
    struct Saying {
        const char *begin;   //!< of the reader's words
        const char *instead; //!< null: they stay
        const char *advice;
    };
    static constexpr Saying sayings[] = {
        {"Expected '#' or '[a-zA-Z]'", "\"&\" begins no entity", "; write &amp; for it"},
        {"Expected ';'", "an entity has no \";\" at its end", "; write &amp; for \"&\""},
        {"Entity '", nullptr, "; write the character itself, or &#NUMBER;"},
        {"Unexpected '<'", nullptr, "; write &lt; for it"},
        {"Encoding ", nullptr, "; save the file as UTF-8"},
        {"Expected character data", "an element within a text", "; write &lt; for \"<\""},
        {"Extra content", nullptr, "; all has to be in one element"},
    };
    QString text = xml.errorString();
    while (text.endsWith(QLatin1Char('.'))) {
        text.chop(1);
    }
    for (const Saying &each : sayings) {
        if (text.startsWith(QLatin1String(each.begin))) {
            return (each.instead ? QString(QLatin1String(each.instead)) : text)
                + QLatin1String(each.advice);
        }
    }
    return text;
}

//! How many bytes of a file in UTF-8 can be read as such.
qsizetype validLength(const QByteArray &bytes)
{
    const Archive::TextCheck check;
    const std::string_view all(bytes.constData(), size_t(bytes.size()));
    size_t begin = 0;
    while (begin < all.size()) {
        const std::string_view rest = all.substr(begin);
        size_t size = 1;
        while (size < std::min<size_t>(4, rest.size()) && (rest[size] & 0xC0) == 0x80) {
            ++size;
        }
        // A zero byte is a character, though of no text.
        if (rest.front() != '\0' && !check.isText(rest.substr(0, size))) {
            break;
        }
        begin += size;
    }
    return qsizetype(begin);
}

Place placeOf(const QByteArray &bytes, qsizetype end)
{
    const QByteArray before = bytes.left(int(end));
    const auto lineBegin = before.lastIndexOf('\n') + 1;
    return {before.count('\n') + 1, QString::fromUtf8(before.mid(lineBegin)).size() + 1};
}

bool isUtf16(const QByteArray &bytes)
{
    return bytes.startsWith("\xFF\xFE") || bytes.startsWith("\xFE\xFF");
}

//! How often U+FFFD itself is written in a file whose encoding is none of Unicode's own.
int writtenReplacements(const QByteArray &bytes)
{
    const QByteArray lower = bytes.toLower();
    // The last one is the character's own sequence in GB 18030.
    return int(lower.count("&#xfffd;") + lower.count("&#65533;") + bytes.count("\x84\x31\xA4\x37"));
}

//! The characters of a file, as far as its markup and the names in it need them.
QString markupOf(const QByteArray &bytes, bool isUtf8)
{
    if (isUtf16(bytes)) {
        QString text;
        const int high = bytes.startsWith("\xFE\xFF") ? 0 : 1;
        for (int i = 2; i + 1 < int(bytes.size()); i += 2) {
            const auto unit = uint(uchar(bytes.at(i + high))) << 8 | uchar(bytes.at(i + 1 - high));
            text += QChar(unit);
        }
        return text;
    }
    return isUtf8 ? QString::fromUtf8(bytes) : QString::fromLatin1(bytes);
}

//! The end of what begins here: of markup that holds no references, else of the character.
QString::size_type markupEnd(const QString &text, QString::size_type begin)
{
    static constexpr const char *passed[][2] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}};
    for (const auto &[open, close] : passed) {
        if (text.at(begin) == QLatin1Char('<')
            && text.mid(begin, 9).startsWith(QLatin1String(open))) {
            const auto found = text.indexOf(QLatin1String(close), begin);
            return found < 0 ? text.size() : found;
        }
    }
    return begin + 1;
}

//! The name of the entity that the "&" at this place refers to; empty if it does not.
QString referencedName(const QString &text, QString::size_type begin)
{
    auto end = begin + 1;
    while (end < text.size() && !QStringLiteral(";&<").contains(text.at(end))) {
        ++end;
    }
    const bool isReference = end < text.size() && text.at(end) == QLatin1Char(';');
    return isReference ? text.mid(begin + 1, end - begin - 1) : QString();
}

/*!
 * The references in \a text to the entities of these \a names, also those within other entities,
 * up to where reading stops. The reader puts nothing in their place and does not tell where.
 */
std::vector<CatalogueDocument::Unread> referencesTo(const QSet<QString> &names, const QString &text,
                                                    const std::optional<Stop> &stop)
{
    const auto isBehind = [&stop](const Place &end) {
        return stop
            && std::tie(end.line, end.column) >= std::tie(stop->place.line, stop->place.column);
    };
    std::vector<CatalogueDocument::Unread> found;
    Place place;
    for (QString::size_type i = 0; i < text.size();) {
        if (isBehind(place)) {
            break;
        }
        if (text.at(i) == QLatin1Char('&')) {
            const QString name = referencedName(text, i);
            // One that is the error itself is told as such.
            if (names.contains(name) && !isBehind({place.line, place.column + name.size() + 1})) {
                found.push_back({place, name});
            }
        }
        for (const auto end = markupEnd(text, i); i < end; ++i) {
            const bool isLineEnd = text.at(i) == QLatin1Char('\n');
            place = {place.line + (isLineEnd ? 1 : 0), isLineEnd ? 1 : place.column + 1};
        }
    }
    return found;
}

class Walk
{
public:
    Walk(const QByteArray &content, CatalogueDocument &target)
        : bytes(content)
        , device(content)
        , xml(&device)
        , document(target)
    {
    }

    void run()
    {
        while (!xml.atEnd() && !document.stop) {
            device.beginPiece();
            begin = here();
            switch (xml.readNext()) {
            case QXmlStreamReader::StartDocument:
                document.encoding = xml.documentEncoding().toString();
                break;
            case QXmlStreamReader::DTD:
                checkDocumentType();
                break;
            case QXmlStreamReader::EntityReference:
                readReference();
                break;
            case QXmlStreamReader::StartElement:
                startElement();
                break;
            case QXmlStreamReader::EndElement:
                open.pop_back();
                break;
            default:
                break;
            }
        }
        if (xml.hasError() && !document.stop) {
            stopAtError();
        }
        if (!unreadNames.isEmpty()) {
            document.unread = referencesTo(unreadNames, markupOf(bytes, isUtf8()), document.stop);
        }
        if (document.replaced && replacements <= writtenReplacements(bytes)) {
            document.replaced.reset();
        }
    }

private:
    /*!
     * Where the next element begins, if that is what comes next. Within the root there is
     * nothing between tokens, but of what ends a text the "<" has been read.
     */
    [[nodiscard]] Place here() const
    {
        if (open.empty()) {
            return hereInProlog();
        }
        const bool isBehind = xml.isCharacters() && !xml.isCDATA();
        return {xml.lineNumber(), xml.columnNumber() + (isBehind ? 0 : 1)};
    }

    //! The same in front of the root, where blanks are no tokens.
    [[nodiscard]] Place hereInProlog() const
    {
        const bool isBegin = xml.isStartDocument() && xml.documentVersion().isEmpty();
        Place place{1, 1};
        if (!isBegin) {
            place = {xml.lineNumber(), xml.columnNumber() + 1};
        }
        const QList<QByteArray> lines = bytes.left(int(maxProlog)).split('\n');
        for (qint64 line = place.line; line <= lines.size(); ++line) {
            const QString text = QString::fromUtf8(lines.at(int(line - 1)));
            const auto found
                = text.indexOf(QLatin1Char('<'), line == place.line ? int(place.column - 1) : 0);
            if (found >= 0) {
                return {line, found + 1};
            }
        }
        return place;
    }

    [[nodiscard]] QString attribute(const char *name) const
    {
        return xml.attributes().value(QLatin1String(name)).toString();
    }

    void stop(Stop::Reason reason, Place place, const QString &text)
    {
        document.stop = Stop{reason, place, text, inText};
    }

    void stopAtError()
    {
        if (device.isPieceTooLong()) {
            stop(Stop::Reason::Limit, begin,
                 QStringLiteral("an element, text or comment of more than 262,144 bytes"));
            return;
        }
        // What the reader has read last is the character that it does not take.
        const Place place{xml.lineNumber(), std::max<qint64>(xml.columnNumber(), 1)};
        if (xml.errorString().startsWith(QLatin1String("Encountered incorrectly encoded"))) {
            stopAtBytes(place, isUtf8() && !isUtf16(bytes));
        } else if (xml.error() == QXmlStreamReader::PrematureEndOfDocumentError) {
            stop(Stop::Reason::Xml, place,
                 open.empty() ? QStringLiteral("the file ends before any element")
                              : QStringLiteral("the file ends within \"%1\" of line %2")
                                    .arg(open.back().name, QString::number(open.back().line)));
        } else if (isAtSubstitute()) {
            stop(Stop::Reason::Byte, place,
                 QStringLiteral("a byte does not fit the encoding; save the file as UTF-8"));
        } else {
            QString text = errorText(xml);
            if (!open.empty() && text.startsWith(QLatin1String("Opening and ending tag"))) {
                text = QStringLiteral("the end of another element than \"%1\" of line %2")
                           .arg(open.back().name, QString::number(open.back().line));
            }
            stop(Stop::Reason::Xml, place, text);
        }
    }

    //! In the place of a byte that fits no character a decoder may put a control character, which
    //! XML does not know. The file itself has none.
    [[nodiscard]] bool isAtSubstitute() const
    {
        const auto isControl
            = [](char c) { return uchar(c) < 0x20 && c != '\t' && c != '\n' && c != '\r'; };
        return !isOfUnicode() && xml.errorString().startsWith(QLatin1String("Unexpected ''"))
            && std::none_of(bytes.cbegin(), bytes.cend(), isControl);
    }

    //! Of such an encoding the reader tells what does not fit, and U+FFFD is a character like any
    //! other.
    [[nodiscard]] bool isOfUnicode() const
    {
        return document.encoding.isEmpty()
            || document.encoding.contains(QLatin1String("UTF"), Qt::CaseInsensitive);
    }

    [[nodiscard]] bool isUtf8() const
    {
        return document.encoding.isEmpty()
            || document.encoding.compare(QLatin1String("UTF-8"), Qt::CaseInsensitive) == 0;
    }

    void countReplacements(const QString &text)
    {
        const auto count = int(text.count(QChar(QChar::ReplacementCharacter)));
        if (count == 0 || isOfUnicode()) {
            return;
        }
        replacements += count;
        if (!document.replaced) {
            document.replaced = begin;
        }
    }

    void readReference()
    {
        unreadNames.insert(xml.name().toString());
        if (++references > maxReferences && !document.stop) {
            stop(Stop::Reason::Limit, begin,
                 QStringLiteral("more than 1,000 entities that stand in another file"));
        }
    }

    void stopAtBytes(const Place &place, bool isUtf8)
    {
        const qsizetype valid = isUtf8 ? validLength(bytes) : bytes.size();
        if (valid == bytes.size()) {
            stop(Stop::Reason::Bytes, place, QStringLiteral("bytes do not fit the encoding"));
            return;
        }
        const auto byte = uint(static_cast<unsigned char>(bytes.at(int(valid))));
        stop(Stop::Reason::Bytes, placeOf(bytes, valid),
             QStringLiteral("byte 0x%1 is no UTF-8; save the file as UTF-8, or declare its "
                            "encoding in the first line")
                 .arg(QString::number(byte, 16).toUpper()));
    }

    void checkDocumentType()
    {
        const auto entities = xml.entityDeclarations();
        for (const QXmlStreamEntityDeclaration &each : entities) {
            if (!each.systemId().isEmpty() || !each.publicId().isEmpty()) {
                unreadNames.insert(each.name().toString());
            }
        }
        const bool expands = !entities.isEmpty();
        if (xml.text().size() > maxDocumentType || (expands && bytes.count('&') > maxReferences)) {
            stop(Stop::Reason::Limit, begin,
                 QStringLiteral("a document type that makes much of little; a catalogue needs "
                                "none"));
        }
    }

    [[nodiscard]] bool isWithinLimits()
    {
        QString text;
        if (open.size() >= maxDepth) {
            text = QStringLiteral("elements within more than 100 others");
        } else if (xml.attributes().size() + xml.namespaceDeclarations().size() > maxAttributes) {
            text = QStringLiteral("an element with more than 100 attributes");
        } else if (++elements > maxElements) {
            text = QStringLiteral("more than 250,000 elements");
        } else {
            return true;
        }
        stop(Stop::Reason::Limit, begin, text);
        return false;
    }

    void startElement()
    {
        if (!isWithinLimits()) {
            return;
        }
        const QString parent = open.empty() ? QString() : open.back().name;
        const QString name = xml.name().toString();
        const auto attributes = xml.attributes();
        for (const QXmlStreamAttribute &each : attributes) {
            countReplacements(each.value().toString());
        }
        if (open.empty()) {
            document.root = begin;
        }
        open.push_back({name, begin.line});
        if (name == QLatin1String("service")) {
            startService();
        } else if (name == QLatin1String("event")) {
            startEvent(parent);
        } else if (name == QLatin1String("description")) {
            readDescription(parent);
        } else if (name == QLatin1String("argument")) {
            readArgument(parent);
        } else if (name == QLatin1String("enum")) {
            document.enums.push_back({begin, attribute("name"), {}});
        } else if (name == QLatin1String("item")) {
            readItem(parent);
        } else if (open.size() > 1 && !unknown.contains(name)) {
            unknown.insert(name);
            document.oddities.push_back({Oddity::Kind::Unknown, begin, name, {}});
        }
    }

    void startService()
    {
        if (xml.attributes().hasAttribute(QLatin1String("name"))) {
            service = attribute("name");
        } else {
            document.oddities.push_back(
                {Oddity::Kind::Unnamed, begin, QStringLiteral("service"), service});
        }
    }

    void startEvent(const QString &parent)
    {
        const QString id = attribute("id");
        document.events.push_back({begin,
                                   id,
                                   eventIdFromText(id),
                                   attribute("name"),
                                   attribute("loglevel"),
                                   service,
                                   {},
                                   {}});
        if (parent != QLatin1String("service")) {
            document.oddities.push_back(
                {Oddity::Kind::Outside, begin, QStringLiteral("event"), service});
        }
    }

    //! The event that a part belongs to; null where there is none.
    CatalogueDocument::Event *eventOf(const char *part, const QString &parent)
    {
        const bool isThere = !document.events.empty();
        const QString id = isThere ? QString::number(document.events.back().id) : QString();
        checkOwner(part, isThere, parent == QLatin1String("event"), id);
        return isThere ? &document.events.back() : nullptr;
    }

    void checkOwner(const char *part, bool isThere, bool isWithin, const QString &owner)
    {
        if (!isThere || !isWithin) {
            document.oddities.push_back({isThere ? Oddity::Kind::Outside : Oddity::Kind::Ignored,
                                         begin, QLatin1String(part), owner});
        }
    }

    //! QXmlStreamReader::readElementText, but for the entities that it passes over. At an error:
    //! what was read before it.
    QString readText()
    {
        QString text;
        for (;;) {
            switch (xml.readNext()) {
            case QXmlStreamReader::EntityReference:
                readReference();
                break;
            case QXmlStreamReader::Characters:
                text += xml.text();
                break;
            case QXmlStreamReader::Comment:
            case QXmlStreamReader::ProcessingInstruction:
                break;
            case QXmlStreamReader::EndElement:
                return text;
            default:
                if (!xml.hasError()) {
                    xml.raiseError(QStringLiteral("Expected character data."));
                }
                return text;
            }
        }
    }

    void readDescription(const QString &parent)
    {
        CatalogueDocument::Event *const event = eventOf("description", parent);
        const QString lang = attribute("lang");
        const QString text = readText();
        inText = xml.hasError() && event;
        if (!xml.hasError()) {
            open.pop_back();
        }
        countReplacements(text);
        if (event) {
            event->texts.push_back({begin, lang, text});
        }
    }

    void readArgument(const QString &parent)
    {
        CatalogueDocument::Event *const event = eventOf("argument", parent);
        if (event) {
            const QString type = attribute("type");
            event->arguments.push_back(
                {begin, attribute("name"), type, typeFromName(type), attribute("enum")});
        }
    }

    void readItem(const QString &parent)
    {
        const bool isThere = !document.enums.empty();
        checkOwner("item", isThere, parent == QLatin1String("enum"),
                   isThere ? document.enums.back().name : QString());
        if (isThere) {
            const QString text = attribute("value");
            bool isNumber = false;
            const int value = text.toInt(&isNumber);
            document.enums.back().items.push_back(
                {begin, text, value, isNumber, attribute("name")});
        }
    }

    struct Open {
        QString name;
        qint64 line = 0;
    };

    const QByteArray &bytes;
    Bytes device;
    QXmlStreamReader xml;
    CatalogueDocument &document;
    Place begin; //!< of the token at hand
    std::vector<Open> open;
    QString service;
    QSet<QString> unknown;     //!< elements
    QSet<QString> unreadNames; //!< of entities that stand in another file
    int references = 0;        //!< to those that are not even declared in this one
    int replacements = 0;      //!< U+FFFD in what is read
    int elements = 0;
    bool inText = false;
};

} // namespace

CatalogueDocument CatalogueDocument::read(const QByteArray &bytes)
{
    CatalogueDocument document;
    Walk(bytes, document).run();
    return document;
}

QHash<QString, int> CatalogueDocument::levels() const
{
    const auto found = std::find_if(enums.crbegin(), enums.crend(), [](const Enum &each) {
        return each.name == QLatin1String("LogLevel");
    });
    QHash<QString, int> result;
    if (found == enums.crend()) {
        return result;
    }
    QHash<int, QString> names;
    for (const Item &item : found->items) {
        names.insert(item.value, item.name);
    }
    for (const Item &item : found->items) {
        result.insert(names.value(item.value), item.value);
    }
    return result;
}
