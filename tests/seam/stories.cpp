// SPDX-License-Identifier: MIT

#include "tests/seam/stories.h"

#include "tests/seam/effects.h"

#include <QRegularExpression>
#include <QtTest>

namespace {

struct Step
{
    QString text;
    QString effects; ///< expected
    int line;        ///< in the file
};

struct Story
{
    QString path;
    QList<Step> steps;
};

QList<Story> gStories; // by row

void fail(const QString &path, int line, const QString &text)
{
    QTest::qFail(qPrintable(text), qPrintable(path), line);
}

// A blank at the end of an effect would not be seen.
QString visible(QString effect)
{
    if (effect.endsWith(' '))
        effect.replace(effect.size() - 1, 1, "\\s");
    return effect;
}

QString effectsSeen(const QRegularExpression &ignored)
{
    QStringList lines;
    for (QString line : effects::take()) {
        if (line.startsWith("log "))
            line.remove(0, 4);
        if (!ignored.match(line).hasMatch())
            lines << visible(line);
    }
    return lines.join("; ");
}

// The steps of a line: only the last has effects.
QList<Step> stepsOf(const QString &text, int line)
{
    static const QRegularExpression twoCounts("^(.*) (\\d+)\\+(\\d+)$");
    const auto arrow = text.indexOf(" -> ");
    QList<Step> steps;
    for (const QString &step : text.left(arrow).split("; ")) {
        const QRegularExpressionMatch match = twoCounts.match(step);
        if (match.hasMatch())
            steps << Step{match.captured(1) + ' ' + match.captured(2), QString(), line}
                  << Step{match.captured(1) + ' ' + match.captured(3), QString(), line};
        else
            steps << Step{step, QString(), line};
    }
    steps.last().effects = arrow < 0 ? QString() : text.mid(arrow + 4);
    return steps;
}

const stories::Verbs &seamVerbs()
{
    using stories::Args;
    static const stories::Verbs verbs{
        {"file", [](Args w) { effects::setFile(w[0], w.text(1).toLatin1()); }},
        {"fail",
         [](Args w) { effects::onWrite = [w](const QByteArray &) { return w[0] == "none"; }; }},
        {"timers", [](Args) { effects::recordTimers(true); }},
        {"fire", [](Args w) { effects::fire(w.number()); }},
        {"now",
         [](Args w) { effects::now = QDateTime::fromString(w[0] + w[1], "yyyy-MM-ddhh:mm:ss"); }}};
    return verbs;
}

} // namespace

namespace stories {

void load(const char *name)
{
    QTest::addColumn<int>("row");
    const QString path = QStringLiteral(STORIES "/%1.stories").arg(name);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(path, 0, "cannot be read");
    QList<QPair<QString, QString>> names;
    QStringList titles;
    int number = 0;
    for (QString line : QString::fromUtf8(file.readAll()).split('\n')) {
        ++number;
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const bool isTitle = line.startsWith('[') && line.endsWith(']');
        if (line.endsWith(' ') || (line.startsWith('[') && !isTitle) || titles.contains(line))
            return fail(path, number, "blank at the end, open title or title of another story");
        if (line.startsWith('$')) {
            names.prepend({line.section(" = ", 0, 0), line.section(" = ", 1)});
        } else if (isTitle) {
            titles << line;
            QTest::newRow(qPrintable(line.mid(1).chopped(1))) << gStories.size();
            gStories << Story{path, {}};
        } else if (titles.isEmpty()) {
            return fail(path, number, "a step outside of a story");
        } else {
            for (const auto &abbreviation : names)
                line.replace(abbreviation.first, abbreviation.second);
            gStories.last().steps << stepsOf(line, number);
        }
    }
}

void play(const Verbs &verbs, const QString &ignored)
{
    QFETCH(int, row);
    const Story &story = gStories.at(row);
    const QRegularExpression pattern(ignored);
    effects::take();
    QVERIFY2(!story.steps.isEmpty(), "a story without a step");
    for (const Step &step : story.steps) {
        QStringList words = step.text.split(' ');
        const bool isFirst = words[0] == "first";
        if (isFirst)
            words.removeFirst();
        const QString verb = words.takeFirst();
        const auto run = verbs.value(verb, seamVerbs().value(verb));
        if (!run)
            return fail(story.path, step.line, "no such verb: " + verb);
        run(Words(words));
        if (isFirst)
            effects::take();
        const QString seen = effectsSeen(pattern);
        if (QTest::currentTestFailed() || seen != step.effects)
            return fail(story.path, step.line,
                        step.text + " -> " + step.effects + "\n  saw: " + seen);
    }
}

} // namespace stories
