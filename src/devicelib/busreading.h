// SPDX-License-Identifier: Apache-2.0
#pragma once

class QDBusConnection;

namespace zib
{

/*!
 * Keeps a connection reading after a flood. To be called once, from the thread of the
 * event loop, for a connection that is up and lives as long as the process.
 *
 * The bus library stops reading once received messages of some 60 MiB wait to be
 * processed, so that memory stays bounded, and starts again when they have been. That
 * happens on the event loop's thread, where the binding cannot switch its socket
 * notifier on, as it belongs to another: without help the process would be deaf from
 * then on. So whenever the event loop has nothing left to do, a notifier that is off is
 * switched on in its own thread.
 */
void keepReading(const QDBusConnection &connection);

} // namespace zib
