// SPDX-License-Identifier: MIT

#include "bench/suite/junit.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSysInfo>
#include <QXmlStreamWriter>

#include <algorithm>

namespace {

/// XML has no way to write the other control characters.
QString clean(QString text)
{
    for (QChar &c : text)
        if ((c < ' ' && c != '\n' && c != '\t') || c.isNonCharacter() || c.isSurrogate())
            c = '?';
    return text;
}

/// What CI systems count a drive as; empty if it passed.
QString elementOf(const Verdict &verdict)
{
    using Fate = Verdict::Fate;
    switch (verdict.fate) {
    case Fate::Failed:
        return "failure";
    case Fate::NothingExpected:
        return verdict.failures.isEmpty() ? "skipped" : "failure";
    case Fate::NotPlayed:
        return "skipped";
    case Fate::DidNotStart:
    case Fate::BrokenOff:
        return "error";
    default:
        return {};
    }
}

/// They take a dot for the end of a folder's name.
QString folderOf(const QString &path)
{
    QString folder = QDir::cleanPath(QFileInfo(path).path());
    while (folder.startsWith('/') || folder.startsWith('.'))
        folder.remove(0, 1);
    return folder.isEmpty() ? "drives" : folder.replace('/', '.');
}

QString inSeconds(double seconds)
{
    return QString::number(seconds, 'f', 3);
}

void writeCounts(QXmlStreamWriter &xml, const QVector<Verdict> &verdicts, double seconds)
{
    const auto count = [&verdicts](const char *element) {
        return QString::number(
            std::count_if(verdicts.begin(), verdicts.end(), [element](const Verdict &verdict) {
                return elementOf(verdict) == element;
            }));
    };
    xml.writeAttribute("name", "pvm-bench");
    xml.writeAttribute("tests", QString::number(verdicts.size()));
    xml.writeAttribute("failures", count("failure"));
    xml.writeAttribute("errors", count("error"));
    xml.writeAttribute("skipped", count("skipped"));
    xml.writeAttribute("time", inSeconds(seconds));
}

void writeCase(QXmlStreamWriter &xml, const QString &path, const Verdict &verdict)
{
    xml.writeStartElement("testcase");
    xml.writeAttribute("classname", clean(folderOf(path)));
    xml.writeAttribute("name", clean(QFileInfo(path).fileName()));
    xml.writeAttribute("file", clean(path));
    xml.writeAttribute("time", inSeconds(verdict.seconds));
    const QString element = elementOf(verdict);
    if (!element.isEmpty()) {
        xml.writeStartElement(element);
        xml.writeAttribute("message",
                           clean(verdict.failures.value(0, Verdict::wordOf(verdict.fate))));
        if (element != "skipped") {
            xml.writeAttribute("type", Verdict::wordOf(verdict.fate));
            xml.writeCharacters(clean(verdict.failures.join('\n')));
        }
        xml.writeEndElement();
    }
    if (!verdict.output.isEmpty())
        xml.writeTextElement("system-out", clean(verdict.output));
    xml.writeEndElement();
}

} // namespace

bool writeJunit(QIODevice *file, const QVector<ListedDrive> &drives,
                const QVector<Verdict> &verdicts, double seconds)
{
    QXmlStreamWriter xml(file);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement("testsuites");
    writeCounts(xml, verdicts, seconds);
    xml.writeStartElement("testsuite");
    writeCounts(xml, verdicts, seconds);
    xml.writeAttribute("timestamp",
                       QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddTHH:mm:ss"));
    xml.writeAttribute("hostname", QSysInfo::machineHostName());
    for (int i = 0; i < drives.size(); ++i)
        writeCase(xml, drives[i].path, verdicts[i]);
    xml.writeEndDocument();
    return !xml.hasError();
}
