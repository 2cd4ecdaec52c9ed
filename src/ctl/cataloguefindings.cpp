// SPDX-License-Identifier: Apache-2.0
#include "ctl/cataloguefindings.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace
{

//! Those at one place stay as they are.
void sort(std::vector<CatalogueFinding> &findings)
{
    std::stable_sort(findings.begin(), findings.end(),
                     [](const CatalogueFinding &one, const CatalogueFinding &other) {
                         return std::tie(one.place.line, one.place.column)
                             < std::tie(other.place.line, other.place.column);
                     });
}

void cut(std::vector<CatalogueFinding> &sorted)
{
    if (sorted.size() > CatalogueFindings::most) {
        sorted.erase(sorted.begin() + CatalogueFindings::most, sorted.end());
    }
}

} // namespace

std::vector<CatalogueFinding> CatalogueFindings::first() const
{
    std::vector<CatalogueFinding> all;
    for (const List *const list : {&errorList, &warningList}) {
        std::vector<CatalogueFinding> found = list->found;
        sort(found);
        cut(found);
        all.insert(all.end(), found.begin(), found.end());
    }
    if (last) {
        all.push_back(*last);
    }
    sort(all);
    return all;
}

QString CatalogueFindings::quoted(const QString &name)
{
    constexpr int mostShown = 60;
    return name.size() > mostShown ? QStringLiteral("\"%1…\"").arg(name.left(mostShown))
                                   : QStringLiteral("\"%1\"").arg(name);
}

void CatalogueFindings::List::add(CatalogueFinding finding)
{
    ++count;
    found.push_back(std::move(finding));
    if (found.size() >= 2 * most) {
        sort(found);
        cut(found);
    }
}
