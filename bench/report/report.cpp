// SPDX-License-Identifier: MIT

#include "bench/report/report.h"

#include <QFile>

QByteArray reportPage(QByteArray facts)
{
    Q_INIT_RESOURCE(report);
    QFile file(":/page.html");
    file.open(QIODevice::ReadOnly);
    QByteArray page = file.readAll();
    // In a text of JSON the same character; in a page it would begin a tag.
    facts.replace('<', "\\u003c");
    const QByteArray place = "%FACTS%\n";
    return page.replace(page.indexOf(place), place.size(), facts);
}
