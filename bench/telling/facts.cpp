// SPDX-License-Identifier: MIT

#include "bench/telling/facts.h"

#include "bench/board/boardlines.h"
#include "bench/car/vehicle.h"

#include <QFileDevice>
#include <QJsonDocument>

#include <algorithm>

namespace {

constexpr int kLongestLog = 300'000; ///< bytes, in the report

QByteArray lineOf(const QJsonObject &fact)
{
    return QJsonDocument(fact).toJson(QJsonDocument::Compact) + '\n';
}

/// A number where the kind has one.
QJsonValue typed(const QString &kind, const QString &subject, const QString &value)
{
    static const QStringList numbers{"command", "exit", "gpio", "line"};
    const bool isMeasured =
        subject == "speed" || subject == "angle" || subject.startsWith("radar ");
    bool isNumber = false;
    const double number = value.toDouble(&isNumber);
    return isNumber && (isMeasured || numbers.contains(kind)) ? QJsonValue(number) : value;
}

} // namespace

Facts::Facts(const DriveClock &clock, QFileDevice *file, bool isKept)
    : mClock(clock), mFile(file), mIsKept(isKept)
{}

void Facts::add(int64_t us, const char *kind, const QString &subject, const QJsonValue &value,
                QJsonObject fact)
{
    if (!isWanted())
        return;
    fact["t"] = us < 0 ? QJsonValue() : seconds(us);
    fact["kind"] = kind;
    fact["subject"] = subject;
    fact["value"] = value;
    const QByteArray line = lineOf(fact);
    if (mFile && mFile->write(line) != line.size()) {
        mFault = mFile->errorString();
        mFile = nullptr;
    }
    // A controller or a renderer that talks without end may not swell the page.
    const bool isTalk = qstrcmp(kind, "log") == 0 || value == "says";
    const qint64 before = mLogBytes;
    mLogBytes += isTalk ? line.size() : 0;
    if (mIsKept && (!isTalk || mLogBytes <= kLongestLog)) {
        mKept += line;
    } else if (mIsKept && before <= kLongestLog) {
        fact["subject"] = "the log is cut off here; --log and --json write all of it";
        fact["cut"] = true;
        mKept += lineOf(fact);
    }
}

void Facts::take(const Fact &fact, int64_t us)
{
    static constexpr const char *kKinds[] = {
        "command",    "exit",   "picture", "gpio",     "watchdog", "record", "log",
        "controller", "frames", "bus",     "renderer", "input",    "power"};
    const char *kind = kKinds[static_cast<int>(fact.kind)];
    add(us, kind, fact.subject, typed(kind, fact.subject, fact.value));
}

void Facts::addWhy(const Why &why, int64_t us)
{
    add(us, "why", why.picture, why.because, {{"unmet", why.unmet}});
}

void Facts::addLines()
{
    for (const BoardLine &line : boardlines::kAll)
        add(-1, "line", QString::number(line.number), line.level ? 1 : 0,
            {{"name", line.name}, {"input", line.word}});
}

void Facts::addExpectation(const Settled &settled, int64_t us)
{
    add(us, "expect", settled.what, settled.isHeld ? "held" : "failed",
        {{"line", settled.line}, {"asked", seconds(settled.askedUs)}, {"text", settled.text}});
}

void Facts::addCar(const QString &subject, const QString &value, int64_t us)
{
    add(us, "car", subject, typed("car", subject, value));
}

void Facts::takeFrame(const BusFrame &frame, int64_t us)
{
    if (!isWanted())
        return;
    for (const vehicle::Reading &reading : vehicle::readings(frame)) {
        Told &told = mTold[reading.subject];
        if (told.value == reading.value || us - told.us < kStepUs)
            continue;
        told = {reading.value, us};
        add(us, "car", reading.subject, typed("car", reading.subject, reading.value));
    }
}

void Facts::addFailure(const QString &text, int line, int64_t settledUs, int64_t us)
{
    add(us, "failure", text, "",
        {{"line", line}, {"settled", seconds(std::max<int64_t>(settledUs, 0))}});
}

void Facts::addFigures(const QVector<Figure> &figures, int64_t us)
{
    for (const Figure &figure : figures)
        for (const auto &[name, number] : figure.numbers)
            add(us, "figure", name, number);
}

QByteArray Facts::keptWith(int64_t us, const QString &result) const
{
    return mKept +
           lineOf({{"t", seconds(us)}, {"kind", "result"}, {"subject", ""}, {"value", result}});
}

double Facts::seconds(int64_t us) const
{
    return static_cast<double>(mClock.driveUs(us)) / 1e6;
}
