// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/eventkinds.h"
#include "ctl/jsonobject.h"
#include "ctl/recordprinter.h"
#include "ctl/timetext.h"

#include <string>

//! One JSON object a line: a contract, to which members may be added.
class JsonPrinter : public RecordPrinter
{
public:
    explicit JsonPrinter(OutputStream &output)
        : out(output)
    {
    }

    void record(const RecordView &record) override;
    void lost(const Archive::Place &place, Archive::Fault reason) override;
    void missing(const Archive::NumberRange &numbers) override;

private:
    void addPlace(JsonObject &object, const Archive::Place &place);

    OutputStream &out;
    TimeText times{TimeStyle::Utc, {}};
    int file = -1;        //!< index of that whose name is there
    std::string fileName; //!< as a JSON string
};
