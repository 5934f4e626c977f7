// SPDX-License-Identifier: MIT

#include "tests/seam/stories.h"

#include "tests/seam/effects.h"

#include <QRegularExpression>
#include <QtTest>

namespace {

QStringList effectsOf(const QRegularExpression &ignored)
{
    QStringList lines;
    for (QString line : effects::take()) {
        if (line.startsWith("log "))
            line.remove(0, 4);
        if (!ignored.match(line).hasMatch())
            lines << line;
    }
    return lines;
}

bool runSeamStep(const QStringList &words)
{
    if (words[0] == "file") {
        effects::setFile(words[1], words.mid(2).join(' ').replace("\\n", "\n").toLatin1());
    } else if (words[0] == "fail") {
        const QString &what = words[1];
        effects::onWrite = [what](const QByteArray &) { return what != "write"; };
        effects::onIoctl = [what](unsigned long, void *) { return what == "ioctl" ? -1 : 0; };
    } else if (words[0] == "timers") {
        effects::recordTimers(true);
    } else if (words[0] == "now") {
        effects::now = QDateTime::fromString(words[1] + words[2], "yyyy-MM-ddhh:mm:ss");
    } else {
        return false;
    }
    return true;
}

} // namespace

namespace stories {

void load(const QString &path)
{
    QTest::addColumn<QStringList>("steps");
    QFile file(path);
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
    QList<QPair<QString, QString>> names;
    QString title;
    QStringList steps;
    for (QString line : QString::fromUtf8(file.readAll() + "\n[end]").split('\n')) {
        if (line.startsWith('$')) {
            names.prepend({line.section(" = ", 0, 0), line.section(" = ", 1)});
        } else if (line.startsWith('[')) {
            QVERIFY2(title.isEmpty() || !steps.isEmpty(), qPrintable(title));
            if (!title.isEmpty())
                QTest::newRow(qPrintable(title)) << steps;
            title = line.mid(1).chopped(1);
            steps.clear();
        } else if (!line.isEmpty() && !line.startsWith('#')) {
            for (const auto &name : names)
                line.replace(name.first, name.second);
            steps << line;
        }
    }
}

void play(const Run &run, const QString &ignored)
{
    QFETCH(QStringList, steps);
    const QRegularExpression pattern(ignored);
    effects::take();
    for (const QString &step : steps) {
        const QString expected = step.section(" -> ", 1);
        QStringList words = step.section(" -> ", 0, 0).split(' ');
        const bool isFirst = words[0] == "first";
        if (isFirst)
            words.removeFirst();
        if (!runSeamStep(words))
            run(words);
        if (isFirst)
            effects::take();
        if (QTest::currentTestFailed())
            return;
        const QString seen = effectsOf(pattern).join("; ");
        QVERIFY2(seen == expected, qPrintable(step + "\n  saw: " + seen));
    }
}

} // namespace stories
