// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"

#include <QByteArray>

#include <string>
#include <string_view>

/*!
 * Writes the page piece by piece, so that no more of it is in memory than one piece.
 *
 * What the page shows stands in it as data blocks, which browsers neither run nor show:
 * compressed (RFC 1950), so that a page can be sent by mail, and in base64, so that no byte
 * of an event can be taken for anything of the page. Its own script unpacks them and only
 * ever makes texts of them. A policy in its head names that script and its style by their
 * hashes and forbids everything else: other scripts, connections, pictures, forms.
 */
class ReportPage
{
public:
    //! Writes what stands in front of the data. The output must outlive this; it throws.
    explicit ReportPage(OutputStream &output);

    //! Writes a data block, of which the script finds all with \a kind in their order.
    void add(std::string_view kind, const QByteArray &content);
    //! Writes the rest.
    void end();

private:
    OutputStream &out;
    QByteArray script;
};
