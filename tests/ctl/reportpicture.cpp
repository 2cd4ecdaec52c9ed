// SPDX-License-Identifier: Apache-2.0

// reportpicture PAGE LIGHT DARK: pictures of a report, as PNG, for the documents. Of the
// selected record all is shown.

#include "ctl/browser.h"
#include "support/literals.h"

#include <QFile>

#include <cstdio>

namespace
{

void savePicture(Browser &browser, const char *fileName)
{
    QFile file(QFile::decodeName(fileName));
    const QByteArray picture = browser.picture();
    if (!file.open(QIODevice::WriteOnly) || file.write(picture) != picture.size()) {
        qFatal("cannot write %s", fileName);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: reportpicture PAGE LIGHT DARK\n");
        return 2;
    }
    Browser browser("UTC"_s);
    if (!browser.open(QFile::decodeName(argv[1]))) {
        qFatal("the page does not open");
    }
    // Damage among its neighbours, and one that comes soon behind it.
    browser.value(R"((() => {
        document.getElementById('damage').click();
        document.querySelector('.row.lost').click();
        [...document.querySelectorAll('.row.lost ~ .row')].find((row) =>
            row.textContent.includes('door')).click();
        document.activeElement.blur();
    })())"_s);
    savePicture(browser, argv[2]);
    browser.preferDark(true);
    browser.value("new Promise((resolve) => setTimeout(resolve, 300))"_s); // colours move over
    savePicture(browser, argv[3]);
    return browser.problems().isEmpty() ? 0 : 1;
}
