// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace zib
{

//! On this vendor's devices nobody has to answer for an object path.
class FactoryManager
{
public:
    FactoryManager(const QString &, const QString &) { }
    void takeIntoService() { }
    [[nodiscard]] static bool isClaimed(const QString &) { return true; }
};

} // namespace zib
