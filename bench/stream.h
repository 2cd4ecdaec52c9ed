// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"

#include <QDir>
#include <QList>
#include <QString>
#include <QVariant>

#include <memory>

class BinaryLogInterface;

/*!
 * The stream of events that everything here is measured on: a bool, an int, a double
 * and a string of 20 characters, from one object. A record of it takes 81 bytes, so 32
 * of them make a bundle and 1,280 a file. The peers are measured on the same stream.
 */
namespace Stream
{

constexpr int eventId = 1001;
constexpr int recordsPerBundle = 32;
constexpr int recordsPerFile = 1280;
constexpr int defaultFiles = 11; //!< what the daemon keeps unless told otherwise

//! What an output gets for event number \a n: the emitter's path, then the values.
QList<QVariant> arguments(uint n);

//! The text of the stream's events.
QString templateText();

//! A catalogue file with the stream's event kind.
QByteArray catalogueXml();
//! The same as loaded.
const SystemeventCatalogue &catalogue();

//! A writer as the daemon makes it, but for how many files it keeps.
std::unique_ptr<BinaryLogInterface> openLog(const QDir &folder, int highestIndex);

//! Writes events into a folder, the last ones too where they are no whole bundle.
void fill(const QDir &folder, int events, int highestIndex);
//! Makes so many files, the newest one just short of being full.
void fillFiles(const QDir &folder, int files);

} // namespace Stream
