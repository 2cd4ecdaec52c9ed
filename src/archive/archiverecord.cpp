// SPDX-License-Identifier: Apache-2.0
#include "archive/archiverecord.h"

namespace Archive
{

QLatin1String stateName(State state)
{
    switch (state) {
    case State::Whole:
        return QLatin1String("whole");
    case State::Likely:
        return QLatin1String("likely");
    case State::Damaged:
        break;
    }
    return QLatin1String("damaged");
}

QLatin1String faultText(Fault fault)
{
    switch (fault) {
    case Fault::None:
        break;
    case Fault::Head:
        return QLatin1String("a record whose number, time or path is damaged");
    case Fault::End:
        return QLatin1String("a record whose end mark or length is damaged");
    case Fault::Text:
        return QLatin1String("a record with a damaged text");
    case Fault::Torn:
        return QLatin1String("a record whose end is missing");
    case Fault::Zeros:
        return QLatin1String("zeros");
    case Fault::Unknown:
        return QLatin1String("bytes that are no record");
    }
    return QLatin1String("nothing");
}

} // namespace Archive
