// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/cataloguedocument.h"

#include <optional>
#include <vector>

//! Something in a catalogue that its author should know of.
struct CatalogueFinding {
    CatalogueDocument::Place place;
    //! With the catalogue as it is the daemon shows something wrong, or not at all.
    bool isError = false;
    const char *rule = ""; //!< by which programs tell findings apart
    QString message;
};

/*!
 * Collects what is found in one file. All are counted; of very many errors the first are kept,
 * and so of warnings.
 */
class CatalogueFindings
{
public:
    static constexpr size_t most = 1000;

    void error(const CatalogueDocument::Place &place, const char *rule, const QString &message)
    {
        errorList.add({place, true, rule, message});
    }
    void warning(const CatalogueDocument::Place &place, const char *rule, const QString &message)
    {
        warningList.add({place, false, rule, message});
    }
    //! An error, which is kept whatever else is found: why all that follows is unread.
    void end(const CatalogueDocument::Place &place, const char *rule, const QString &message)
    {
        last = CatalogueFinding{place, true, rule, message};
    }

    [[nodiscard]] quint64 errors() const { return errorList.count + (last ? 1 : 0); }
    [[nodiscard]] quint64 warnings() const { return warningList.count; }
    //! In the order of the file.
    [[nodiscard]] std::vector<CatalogueFinding> first() const;

    //! A name as a message shows it: in quotes, and cut where it is very long.
    static QString quoted(const QString &name);

private:
    struct List {
        void add(CatalogueFinding finding);

        std::vector<CatalogueFinding> found; //!< the first of them, and at times some more
        quint64 count = 0;
    };

    List errorList;
    List warningList;
    std::optional<CatalogueFinding> last;
};
