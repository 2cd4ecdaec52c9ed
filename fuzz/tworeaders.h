// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "reader/literalreader.h"
#include "reader/systemeventlogfilereader.h"

//! Asks the product's reader and the plain one the same, and aborts where they differ.
class TwoReaders
{
public:
    TwoReaders(const QDir &directory, const SystemeventCatalogue *catalogue)
        : literal(directory, catalogue)
        , reader(directory, catalogue)
    {
    }

    quint64 minimum();
    quint64 maximum();
    void compareEntry(quint64 logNr, const QString &lang);
    void compareRange(quint64 start, quint64 end, const QString &lang, quint64 sizeLimit);
    //! File 0 has grown.
    void changed();
    //! Any other change.
    void rotated();

private:
    template <typename Ask>
    auto compare(const char *question, const Ask &answerOf);

    LiteralReader literal;
    SystemeventLogfileReader reader;
};
