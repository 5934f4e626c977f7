// SPDX-License-Identifier: MIT

#include "bench/suite/verdict.h"

#include "bench/playing/player.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {

constexpr qint64 kLongestOutput = 50'000; ///< bytes

struct Told
{
    QString result;
    QStringList failures;
};

/// The facts of a long log are many: those that end it are the ones that are looked at.
Told readFacts(const QString &path)
{
    Told told;
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        if (!line.contains("\"kind\":\"failure\"") && !line.contains("\"kind\":\"result\""))
            continue;
        const QJsonObject fact = QJsonDocument::fromJson(line).object();
        if (fact["kind"] == "failure")
            told.failures << fact["subject"].toString();
        else
            told.result = fact["value"].toString();
    }
    return told;
}

QString endOf(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    file.seek(std::max<qint64>(file.size() - kLongestOutput, 0));
    return QString::fromUtf8(file.readAll());
}

/// What the bench says of itself is the last line.
QString lastLine(const QString &output)
{
    return output.trimmed().section('\n', -1).remove(QLatin1String("pvm-bench: "));
}

Verdict::Fate fateOf(int status, const QString &result)
{
    using Fate = Verdict::Fate;
    switch (status) {
    case kHeld:
        return result == "held" ? Fate::Held : Fate::NothingExpected;
    case kFailed:
        return Fate::Failed;
    case kBadInput:
    case kNoBoard:
        return Fate::DidNotStart;
    default:
        return Fate::BrokenOff;
    }
}

} // namespace

QString Verdict::wordOf(Fate fate)
{
    static constexpr const char *kWords[] = {"held",          "FAILED",     "nothing expected",
                                             "did not start", "broken off", "not played"};
    return kWords[static_cast<int>(fate)];
}

QString Verdict::line(const QString &path) const
{
    return failures.isEmpty() ? path : failures.first();
}

Verdict judge(const QString &path, int status, const QString &facts, const QString &output,
              bool isStrict)
{
    const Told told = readFacts(facts);
    Verdict verdict;
    verdict.fate = fateOf(status, told.result);
    verdict.status = status < 0 ? kNoBoard : status;
    verdict.output = endOf(output);
    verdict.failures = told.failures;
    if (isStrict && verdict.fate == Verdict::Fate::NothingExpected) {
        verdict.status = kFailed;
        verdict.failures << path + ": nothing was expected of it";
    } else if (status != kHeld && verdict.failures.isEmpty()) {
        verdict.failures << (status < 0 ? "its bench did not end by itself"
                                        : lastLine(verdict.output));
    }
    // A drive's own failures begin with its name alone, and some with none.
    const QString name = QFileInfo(path).fileName() + ':';
    for (QString &failure : verdict.failures)
        if (failure.startsWith(name))
            failure.replace(0, name.size(), path + ':');
        else if (!failure.startsWith(path + ':'))
            failure.prepend(path + ": ");
    return verdict;
}
