// SPDX-License-Identifier: MIT

#include "bench/incident/explain.h"

#include "bench/board/places.h"
#include "bench/board/printable.h"
#include "bench/car/vehicle.h"
#include "bench/incident/journal.h"
#include "bench/report/report.h"
#include "bench/telling/facts.h"
#include "bench/telling/timeline.h"
#include "bench/telling/whyteller.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

constexpr int64_t kBacklightUs =
    1'000'000; ///< within it the script behind a request is seen to have run

int complain(int code, const QString &text)
{
    fprintf(stderr, "pvm-bench: %s\n", qPrintable(printable(text, 1000)));
    return code;
}

/// The first group of the pattern in the line; null without a match.
QString said(const char *pattern, const QString &line)
{
    return QRegularExpression(pattern).match(line).captured(1);
}

/// Tells a journal as the player tells a drive.
class Teller
{
public:
    Teller(const Journal &journal, const std::vector<BusFrame> &frames, QTextStream &out,
           const Style &style, QFileDevice *json)
        : mJournal(journal),
          mFrames(frames),
          mTimeline(out, mClock, style),
          mFacts(mClock, json, true)
    {}

    Facts &facts() { return mFacts; }

    void tell(int64_t fromUs, int64_t toUs)
    {
        for (const QString &remark : mJournal.remarks) {
            mTimeline.noteWhole(0, "journal", remark);
            mFacts.add(0, "remark", remark);
        }
        take({Fact::Kind::Picture, {}, "?"}, 0);
        const auto &lines = mJournal.lines;
        for (size_t i = 0; i < lines.size(); ++i) {
            if (lines[i].us < fromUs || lines[i].us > toUs)
                continue;
            for (; mNextFrame < mFrames.size() && mFrames[mNextFrame].stampUs <= lines[i].us;
                 ++mNextFrame)
                if (mFrames[mNextFrame].stampUs >= fromUs)
                    send(mFrames[mNextFrame]);
            if (lines[i].isControllers)
                takeLine(i);
            else
                takeManagers(lines[i]);
        }
        mTimeline.end(mLastUs);
        mWhyTeller.tellNow(mLastUs);
    }

private:
    void send(const BusFrame &frame)
    {
        mWhyTeller.follow(frame.stampUs);
        mFacts.takeFrame(frame, frame.stampUs);
        mTimeline.takeFrame(frame, frame.stampUs);
        mWhyTeller.takeFrame(frame, frame.stampUs);
    }

    void takeManagers(const JournalLine &line)
    {
        mTimeline.note(line.us, "service", line.text);
        if (line.text == "the board has booted") {
            take({Fact::Kind::Power, "boot", "off"}, line.us);
            take({Fact::Kind::Power, {}, "on"}, line.us);
        } else if (line.text.contains("Main process exited") || line.text.contains("Deactivated")) {
            // What the unit runs then routes PVM.
            take({Fact::Kind::Controller, {}, "ended: " + line.text}, line.us);
            route("1", line.us);
        }
    }

    void takeLine(size_t i)
    {
        const QString &text = mJournal.lines[i].text;
        const int64_t us = mJournal.lines[i].us;
        if (text.startsWith("PvmMain ")) {
            mBelieved = "1"; // what a start takes as routed
            if (mPicture == "?")
                take({Fact::Kind::Power, {}, "on"}, us);
        }
        take({Fact::Kind::Log, text, {}}, us);
        const QString asked = said("isToPVM  (\\d+)", text);
        if (!asked.isEmpty() && !isRefused(i)) {
            const QString request = asked == "0" ? "0" : "1";
            if (mBelieved != request && (!mBelieved.isEmpty() || isBacklightBehind(i)))
                route(request, us);
            mBelieved = request;
        }
        takeSignals(text, us);
    }

    /// What the bus and the board told the controller, in its words. With a log of the bus the
    /// car's own frames tell that.
    void takeSignals(const QString &text, int64_t us)
    {
        struct Signal
        {
            const char *pattern;
            const char *subject;
            QStringList values; ///< by their number; none: as it is told
        };
        static const Signal ofCar[] = {
            {"CAN SIG GEAR .*change to: (-?\\d+)", "gear", {"undefined", "P", "R", "N", "D"}},
            {"CAN SIG LIGHT_STATUS .*change to: \"\\[(\\w+)\\]\"", "light", {}},
            {"CAN SIG KEY_STATUS .*change to: (\\d+)", "key", {"OFF", "1", "ON"}},
            {"curSpeed  (\\d+)", "speed", {}},
        };
        for (const Signal &signal : ofCar) {
            const QString value = said(signal.pattern, text);
            if (value.isEmpty() || !mFrames.empty() || value == mSaid[signal.subject])
                continue;
            mSaid[signal.subject] = value;
            const QString word =
                signal.values.isEmpty() ? value : signal.values.value(value.toInt(), value);
            mFacts.addCar(signal.subject, word, us);
            mTimeline.note(us, "car", QString(signal.subject) + ' ' + word);
        }
        static const Signal ofBoard[] = {
            {"DESER LOCK Status.*:  ([01])", "deserializer-lock", {"off", "on"}},
            {"[^E]SER LOCK Status.*:  ([01])", "serializer-lock", {"off", "on"}},
            {"GPIO ACC:  (true|false)", "acc", {}},
        };
        for (const Signal &signal : ofBoard) {
            const QString value = said(signal.pattern, ' ' + text);
            if (!value.isEmpty())
                take({Fact::Kind::Input, signal.subject,
                      value == "true"    ? "on"
                      : value == "false" ? "off"
                                         : signal.values.value(value.toInt())},
                     us);
        }
        const QString allowed = said("isTurnSwitchEnable  (true|false)", text);
        const QString inited = said("isAVMInited  (true|false)", text);
        if (!allowed.isEmpty())
            take({Fact::Kind::Renderer,
                  {},
                  allowed == "true" ? "turn-switch on" : "turn-switch off"},
                 us);
        if (!inited.isEmpty())
            take(
                {Fact::Kind::Renderer, {}, inited == "true" ? "initialised on" : "initialised off"},
                us);
        if (text.contains("=== feed wdt"))
            take({Fact::Kind::Watchdog, {}, "fed"}, us);
        if (text.contains("=== avm stop"))
            mTimeline.note(us, "watchdog", "no heartbeat: no longer fed");
        if (text.contains("#### System DateTime"))
            mTimeline.note(us, "clock", text.section("cmd:", 1));
        if (text.contains("SWITCH HARZARD shortly clicked"))
            mTimeline.note(us, "input", "switch clicked");
    }

    bool isRefused(size_t i) const
    {
        for (size_t next = i + 1; next < mJournal.lines.size() && next < i + 4; ++next) {
            const QString &text = mJournal.lines[next].text;
            if (text.contains("isCanOutFromPVM  false") || text.contains("Wait for AVM inited"))
                return true;
            if (text.contains("isToPVM"))
                return false;
        }
        return false;
    }

    bool isBacklightBehind(size_t i) const
    {
        for (size_t next = i + 1; next < mJournal.lines.size(); ++next) {
            if (mJournal.lines[next].us - mJournal.lines[i].us > kBacklightUs)
                return false;
            if (mJournal.lines[next].text.startsWith("open backlight"))
                return true;
        }
        return false;
    }

    void route(const QString &request, int64_t us)
    {
        const QString script = QString(places::kPictureScript) + ' ' + request;
        take({Fact::Kind::Command, script, "0"}, us);
        take({Fact::Kind::Picture, {}, request == "1" ? "PVM" : "DA"}, us);
        take({Fact::Kind::Exit, script, "0"}, us);
    }

    void take(const Fact &fact, int64_t us)
    {
        if (fact.kind == Fact::Kind::Picture)
            mPicture = fact.value;
        mLastUs = us;
        mWhyTeller.follow(us);
        const QString because = mWhyTeller.take(fact, us);
        mFacts.take(fact, us);
        mTimeline.take(fact, us, because);
        mWhyTeller.follow(us);
    }

    const Journal &mJournal;
    const std::vector<BusFrame> &mFrames;
    DriveClock mClock{1};
    Timeline mTimeline;
    Facts mFacts;
    WhyTeller mWhyTeller{mClock, mTimeline, mFacts};
    int64_t mLastUs = 0;
    size_t mNextFrame = 0;
    QString mPicture;
    QMap<QString, QString> mSaid; ///< of the car, by the controller
    QString mBelieved; ///< the controller's idea of what is routed, "0" or "1"; empty: unknown
};

QString wallText(int64_t wallUs)
{
    return QDateTime::fromMSecsSinceEpoch(wallUs / 1000)
               .toUTC()
               .toString("yyyy-MM-dd hh:mm:ss.zzz") +
           " UTC";
}

/// "14:03:20", on the day of the journal's first line, in UTC; or seconds. The journal's time of
/// it.
QString readMoment(const QString &text, const Journal &journal, int64_t *us)
{
    bool isNumber = false;
    const double seconds = text.toDouble(&isNumber);
    if (isNumber) {
        *us = static_cast<int64_t>(seconds * 1e6);
        return {};
    }
    const QTime time = QTime::fromString(text, text.count(':') == 2 ? "hh:mm:ss" : "hh:mm");
    if (!time.isValid())
        return QStringLiteral("'%1' is not a time, such as 14:03:20 or 2.5").arg(text);
    if (journal.stretches.empty())
        return "the log has no wall-clock times";
    const int64_t firstUs = journal.lines.front().wallUs;
    const QDate day = QDateTime::fromMSecsSinceEpoch(firstUs / 1000).toUTC().date();
    const int64_t dayMs = QDate(1970, 1, 1).daysTo(day) * int64_t{86'400'000};
    *us = journal.timeOf((dayMs + time.msecsSinceStartOfDay()) * 1000);
    return {};
}

bool write(const QString &path, const QByteArray &bytes, QString *fault)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush())
        return true;
    *fault = path + ": " + file.errorString();
    file.remove();
    return false;
}

} // namespace

int explain(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addOptions({{"journal", "", "FILE"},
                       {"can", "", "LOG"},
                       {"channel", "", "NAME", "can0"},
                       {"report", "", "FILE"},
                       {"json", "", "FILE"},
                       {"at", "", "TIME"},
                       {"from", "", "TIME"},
                       {"to", "", "TIME"},
                       {"verbose", ""}});
    if (!parser.parse(QStringList{"pvm-bench"} + arguments))
        return complain(2, parser.errorText().remove(QRegularExpression("\\.$")) +
                               "; see pvm-bench --help");
    if (!parser.positionalArguments().isEmpty() || !parser.isSet("journal"))
        return complain(
            2, "explain takes --journal FILE, and perhaps --can LOG; see pvm-bench --help");
    for (const char *output : {"report", "json"})
        for (const char *input : {"journal", "can"})
            if (parser.isSet(output) &&
                QFileInfo(parser.value(output)) == QFileInfo(parser.value(input)))
                return complain(2, parser.value(output) + ": would write over what is read");

    Journal journal;
    std::vector<BusFrame> frames;
    QString fault = readJournal(parser.value("journal"), &journal);
    if (fault.isEmpty() && parser.isSet("can"))
        fault = readFrames(parser.value("can"), parser.value("channel"), &journal, &frames);
    int64_t fromUs = 0, toUs = std::numeric_limits<int64_t>::max(), atUs = 0;
    for (const auto &[option, us] : {std::pair{"from", &fromUs}, {"to", &toUs}, {"at", &atUs}})
        if (fault.isEmpty() && parser.isSet(option))
            fault = readMoment(parser.value(option), journal, us);
    if (!fault.isEmpty())
        return complain(2, fault);

    if (journal.lines.front().wallUs > 0)
        journal.remarks.prepend("0.000 is " + wallText(journal.lines.front().wallUs));
    if (frames.empty())
        journal.remarks << "without a log of the bus, the car is what the controller says of it";
    journal.remarks << "whether a script has routed what was asked for is not in a journal";
    QTextStream out(stdout);
    QFile json(parser.value("json"));
    if (parser.isSet("json") && !json.open(QIODevice::WriteOnly))
        return complain(4, json.fileName() + ": " + json.errorString());
    const bool isColoured = isatty(STDOUT_FILENO) == 1 && qEnvironmentVariableIsEmpty("NO_COLOR");
    Teller teller(journal, frames, out, {parser.isSet("verbose"), false, isColoured},
                  json.isOpen() ? &json : nullptr);
    const QString name = QFileInfo(parser.value("journal")).fileName();
    teller.facts().add(-1, "run", QCoreApplication::applicationVersion(), 2,
                       {{"version", QCoreApplication::applicationVersion()},
                        {"command_line", QCoreApplication::arguments().join(' ')},
                        {"controller", ""},
                        {"controller_sha256", QString(64, '0')},
                        {"speed", 1},
                        {"date", QDateTime::currentDateTimeUtc().toString(Qt::ISODate)},
                        {"opens_at", static_cast<double>(atUs) / 1e6}});
    teller.facts().add(-1, "drive", name, static_cast<double>(journal.lines.back().us) / 1e6);
    teller.tell(fromUs, toUs);
    teller.facts().add(journal.lines.back().us, "result", {}, "explained");
    if (parser.isSet("report"))
        write(parser.value("report"), reportPage(teller.facts().kept()), &fault);
    if (!teller.facts().fault().isEmpty())
        fault = "the facts: " + teller.facts().fault();
    return fault.isEmpty() ? 0 : complain(4, fault);
}
