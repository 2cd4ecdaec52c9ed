// SPDX-License-Identifier: Apache-2.0
#include "ctl/report/reportpage.h"

#include <QCryptographicHash>
#include <QFile>
#include <QString>

#include <initializer_list>

// Resources of a static library have to be asked for, outside of any namespace.
static void loadResources()
{
    Q_INIT_RESOURCE(report);
}

namespace
{

std::string_view view(const QByteArray &bytes)
{
    return {bytes.constData(), size_t(bytes.size())};
}

//! A file of the page's sources; they are part of the program.
QByteArray source(const char *name)
{
    QFile file(QStringLiteral(":/report/") + QLatin1String(name));
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("%s is not part of the program", name);
    }
    return file.readAll();
}

//! One script of all files, as what is embedded cannot import.
QByteArray wholeScript()
{
    QByteArray script;
    for (const char *const name : {"text.js", "log.js", "filter.js", "timeline.js", "table.js",
                                   "facets.js", "details.js", "page.js"}) {
        script += source(name);
    }
    return script;
}

//! As a policy names what is embedded.
QByteArray hashOf(const QByteArray &content)
{
    return "'sha256-" + QCryptographicHash::hash(content, QCryptographicHash::Sha256).toBase64()
        + '\'';
}

QByteArray policy(const QByteArray &style, const QByteArray &script)
{
    return "default-src 'none'; script-src " + hashOf(script) + "; style-src " + hashOf(style)
        + "; base-uri 'none'; form-action 'none'; require-trusted-types-for 'script'; "
          "trusted-types 'none'";
}

} // namespace

ReportPage::ReportPage(OutputStream &output)
    : out(output)
{
    loadResources();
    const QByteArray style = source("page.css");
    script = wholeScript();
    QByteArray head = source("page.html");
    head.replace("{policy}", policy(style, script));
    head.replace("{style}", style);
    out.write(view(head));
}

void ReportPage::add(std::string_view kind, const QByteArray &content)
{
    constexpr int sizeInFront = 4; // which qCompress adds
    const QByteArray block = qCompress(content).mid(sizeInFront).toBase64();
    out.write("<script type=\"text/plain\" class=\"");
    out.write(kind);
    out.write("\">");
    out.write(view(block));
    out.write("</script>\n");
}

void ReportPage::end()
{
    out.write("<script>");
    out.write(view(script));
    out.write("</script>\n</body>\n</html>\n");
}
