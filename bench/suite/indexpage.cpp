// SPDX-License-Identifier: MIT

#include "bench/suite/indexpage.h"

#include "bench/board/printable.h"

#include <QFileInfo>
#include <QUrl>
#include <QXmlStreamWriter>

#include <algorithm>

namespace {

// Nothing is told by colour alone.
constexpr char kStyle[] =
    "body { margin: 12px 16px; font: 13px/1.35 sans-serif; color: #1a1a1a; background: #fff; }\n"
    "h1 { font-size: 20px; }\n"
    "td, th { padding: 2px 12px 2px 0; text-align: left; vertical-align: top; }\n"
    "td { border-top: 1px solid #ccc; overflow-wrap: anywhere; }\n"
    ".time { text-align: right; white-space: nowrap; }\n"
    ".bad { font-weight: bold; color: #8a2e00; white-space: nowrap; }\n"
    "@media (prefers-color-scheme: dark) { html { background: #111;\n"
    "  filter: invert(0.92) hue-rotate(180deg); } }\n";

void writeRow(QXmlStreamWriter &html, const ListedDrive &drive, const Verdict &verdict,
              const QString &page)
{
    html.writeStartElement("tr");
    html.writeStartElement("td");
    if (verdict.status != 0)
        html.writeAttribute("class", "bad");
    html.writeCharacters(Verdict::wordOf(verdict.fate));
    html.writeEndElement();
    html.writeStartElement("td");
    html.writeAttribute("class", "time");
    html.writeCharacters(QString::number(verdict.seconds, 'f', 1) + " s");
    html.writeEndElement();
    html.writeStartElement("td");
    if (!page.isEmpty()) {
        html.writeStartElement("a");
        html.writeAttribute("href", QString::fromLatin1(QUrl::toPercentEncoding(page)));
    }
    html.writeCharacters(printable(drive.path, 1000));
    if (!page.isEmpty())
        html.writeEndElement();
    html.writeEndElement();
    html.writeTextElement("td", printable(drive.tags.join(", "), 1000));
    html.writeTextElement("td", printable(verdict.failures.value(0), 1000));
    html.writeEndElement();
}

} // namespace

QStringList pageNames(const QVector<ListedDrive> &drives)
{
    QStringList names{"index.html"};
    for (const ListedDrive &drive : drives) {
        const QString base = QFileInfo(drive.path).completeBaseName();
        QString name = base + ".html";
        for (int i = 2; names.contains(name); ++i)
            name = QStringLiteral("%1-%2.html").arg(base).arg(i);
        names << name;
    }
    names.removeFirst();
    return names;
}

bool writeIndexPage(QIODevice *file, const QVector<ListedDrive> &drives,
                    const QVector<Verdict> &verdicts, const QStringList &pages,
                    const QString &summary)
{
    QVector<int> order(drives.size());
    for (int i = 0; i < order.size(); ++i)
        order[i] = i;
    std::stable_partition(order.begin(), order.end(),
                          [&verdicts](int i) { return verdicts[i].status != 0; });
    QXmlStreamWriter html(file);
    html.setAutoFormatting(true);
    html.writeDTD("<!DOCTYPE html>");
    html.writeStartElement("html");
    html.writeAttribute("lang", "en");
    html.writeStartElement("head");
    html.writeEmptyElement("meta");
    html.writeAttribute("charset", "utf-8");
    html.writeTextElement("title", "Drives");
    html.writeTextElement("style", kStyle);
    html.writeEndElement();
    html.writeStartElement("body");
    html.writeTextElement("h1", summary);
    html.writeStartElement("table");
    html.writeStartElement("tr");
    for (const char *head : {"result", "time", "drive", "tags", "first failure"})
        html.writeTextElement("th", head);
    html.writeEndElement();
    for (int i : order)
        writeRow(html, drives[i], verdicts[i], pages[i]);
    html.writeEndDocument();
    return !html.hasError();
}
