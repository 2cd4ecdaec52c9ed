// SPDX-License-Identifier: Apache-2.0
#include "ctl/completion.h"

#include "ctl/knownvalues.h"
#include "ctl/options.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <string_view>

namespace Completion
{
namespace
{

using Options::CommandText;
using Options::commandTexts;
using Options::OptionId;
using Options::OptionText;
using Options::optionTexts;

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        const size_t end = std::min(text.find(separator), text.size());
        parts.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

bool startsWith(std::string_view text, std::string_view front)
{
    return text.substr(0, front.size()) == front;
}

QString fileName(const std::string &typed)
{
    return QFile::decodeName(QByteArray(typed.data(), QByteArray::size_type(typed.size())));
}

/*!
 * The words of a command line, of which the last one is not complete, taken apart as far as
 * they go. Nothing has to be right.
 */
class Line
{
public:
    explicit Line(const std::vector<std::string> &typed)
        : words(typed)
        , last(words.back())
    {
    }

    std::string answer()
    {
        if (words.size() > 1 || startsWith(last, "-")) {
            findCommand();
            if (command) {
                readOptions();
                completeLast();
                return text;
            }
        }
        completeCommand();
        return text;
    }

private:
    //! The words of a command's name; one that begins with an option is that of show.
    void findCommand()
    {
        if (startsWith(words.front(), "-")) {
            command = &commandTexts[size_t(Command::Show)];
            return;
        }
        for (const CommandText &each : commandTexts) {
            const std::vector<std::string_view> name = split(each.name, ' ');
            if (name.size() < words.size() && std::equal(name.begin(), name.end(), words.begin())) {
                command = &each;
                position = name.size();
            }
        }
    }

    void completeCommand()
    {
        const size_t count = words.size() - 1;
        std::string_view previous;
        for (const CommandText &each : commandTexts) {
            const std::vector<std::string_view> name = split(each.name, ' ');
            if (name.size() > count && std::equal(words.begin(), words.end() - 1, name.begin())
                && startsWith(name[count], last) && name[count] != previous) {
                previous = name[count];
                offer(previous, name.size() == count + 1 ? each.summary : "");
            }
        }
    }

    [[nodiscard]] bool isOfCommand(const OptionText &option) const
    {
        const bool standsAlone = position == 0 && words.size() == 1;
        return (option.commands & Options::bit(command->command)) != 0
            || (option.id == OptionId::Version && standsAlone);
    }

    [[nodiscard]] const OptionText *find(std::string_view name) const
    {
        for (const OptionText &option : optionTexts) {
            const std::vector<std::string_view> names = split(option.names, ',');
            if (isOfCommand(option) && std::find(names.begin(), names.end(), name) != names.end()) {
                return &option;
            }
        }
        return nullptr;
    }

    /*!
     * The option in a word whose value begins at \a value, which is npos where the value is
     * the next word; null where there is none.
     */
    const OptionText *optionWithValue(std::string_view word, size_t &value)
    {
        const OptionText *option = nullptr;
        value = std::string_view::npos;
        if (startsWith(word, "--")) {
            const size_t sign = word.find('=');
            option = find(word.substr(0, sign));
            value = sign == std::string_view::npos ? sign : sign + 1;
            note(option);
        } else {
            for (size_t i = 1; i < word.size() && (!option || !option->value); ++i) {
                option = find(std::string("-") + word[i]);
                value = i + 1 < word.size() ? i + 1 : std::string_view::npos;
                note(option);
            }
        }
        return option && option->value ? option : nullptr;
    }

    void note(const OptionText *option)
    {
        if (option) {
            given[size_t(option->id)] = true;
        }
    }

    void readOptions()
    {
        for (; position + 1 < words.size(); ++position) {
            const std::string &word = words[position];
            size_t value = 0;
            if (waiting) {
                take(*waiting, word);
                waiting = nullptr;
            } else if (optionsEnd || word.size() < 2 || word.front() != '-') {
                ++arguments;
            } else if (word == "--") {
                optionsEnd = true;
            } else if (const OptionText *option = optionWithValue(word, value)) {
                if (value == std::string::npos) {
                    waiting = option;
                } else {
                    take(*option, word.substr(value));
                }
            }
        }
    }

    void take(const OptionText &option, const std::string &value)
    {
        if (option.id == OptionId::Folder) {
            source.folder = fileName(value);
        } else if (option.id == OptionId::Catalogue) {
            source.catalogue = fileName(value);
        }
    }

    void completeLast()
    {
        size_t value = 0;
        if (waiting) {
            completeValue(waiting->value, 0);
        } else if (optionsEnd || !startsWith(last, "-")) {
            completeArgument();
        } else {
            const std::array<bool, Options::optionCount> before = given;
            const OptionText *const option = optionWithValue(last, value);
            given = before;
            if (option && value != std::string::npos) {
                completeValue(option->value, value);
            } else {
                completeOption();
            }
        }
    }

    //! Long names, as they say what they are; a short one only as it is.
    void completeOption()
    {
        for (const OptionText &option : optionTexts) {
            if (!isOfCommand(option) || (given[size_t(option.id)] && !option.isRepeatable)) {
                continue;
            }
            for (const std::string_view name : split(option.names, ',')) {
                if (name == last || (startsWith(name, "--") && startsWith(name, last))) {
                    offer(name, option.text);
                }
            }
        }
    }

    //! By the names that a help has for them: "NAME", "[NAME" or "[NAME...]".
    void completeArgument()
    {
        const std::vector<std::string_view> names
            = split(command->arguments ? command->arguments : "", ' ');
        if (names.empty()) {
            return;
        }
        std::string_view name = names[std::min(arguments, names.size() - 1)];
        const bool isRepeatable = name.find("...") != std::string_view::npos;
        if (arguments >= names.size() && !isRepeatable) {
            return;
        }
        name.remove_prefix(name.front() == '[' ? 1 : 0);
        completeValue(name.substr(0, name.find_first_of(isRepeatable ? ".]" : "]")), 0);
    }

    void completeValue(std::string_view name, size_t begin)
    {
        const KnownValues::Kind kind = KnownValues::kindOf(name);
        if (kind != KnownValues::Kind::Words) {
            text = (kind == KnownValues::Kind::Files ? "files " : "directories ")
                + std::to_string(begin) + '\n';
            return;
        }
        const QString typed = QString::fromStdString(last.substr(begin));
        for (const auto &[value, meaning] : KnownValues::startingWith(typed, name, source)) {
            offer(last.substr(0, begin) + value.toStdString(), meaning.toStdString());
        }
    }

    void offer(std::string_view candidate, std::string_view meaning)
    {
        text += candidate;
        if (!meaning.empty()) {
            text += '\t';
            text += meaning;
        }
        text += '\n';
    }

    const std::vector<std::string> &words;
    const std::string &last;
    std::string text = "words 0\n"; //!< the answer
    const CommandText *command = nullptr;
    size_t position = 0;  //!< of the word at hand
    size_t arguments = 0; //!< how many of them are complete
    bool optionsEnd = false;
    const OptionText *waiting = nullptr; //!< for its value
    std::array<bool, Options::optionCount> given{};
    SourceChoice source;
};

} // namespace

std::string candidates(const std::vector<std::string> &words)
{
    return words.empty() ? std::string() : Line(words).answer();
}

} // namespace Completion
