// SPDX-License-Identifier: MIT

#include "bench/incident/teller.h"

#include "bench/board/places.h"
#include "bench/incident/said.h"

namespace {

constexpr int64_t kBacklightUs =
    1'000'000; ///< within it the script behind a request is seen to have run

} // namespace

Teller::Teller(const Journal &journal, const std::vector<BusFrame> &frames, QTextStream &out,
               const Style &style, QFileDevice *json)
    : mJournal(journal), mFrames(frames), mTimeline(out, mClock, style), mFacts(mClock, json, true)
{}

void Teller::tell(int64_t fromUs, int64_t toUs)
{
    take({Fact::Kind::Picture, {}, "?"}, 0);
    for (const QString &remark : mJournal.remarks) {
        mTimeline.noteWhole(0, "journal", remark);
        mFacts.add(0, "remark", remark);
    }
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

void Teller::send(const BusFrame &frame)
{
    mWhyTeller.follow(frame.stampUs);
    mFacts.takeFrame(frame, frame.stampUs);
    mTimeline.takeFrame(frame, frame.stampUs);
    mWhyTeller.takeFrame(frame, frame.stampUs);
}

void Teller::takeManagers(const JournalLine &line)
{
    mTimeline.note(line.us, "service", QString(line.text).remove("pvm-controller.service: "));
    mFacts.add(line.us, "log", "systemd: " + line.text);
    if (line.isBoot()) {
        take({Fact::Kind::Power, "boot", "off"}, line.us);
        take({Fact::Kind::Power, {}, "on"}, line.us);
    } else if (line.isEnd()) {
        // What the unit runs then routes PVM.
        take({Fact::Kind::Controller, {}, "ended: " + line.text}, line.us);
        route("1", line.us);
    }
}

void Teller::takeLine(size_t i)
{
    const QString &text = mJournal.lines[i].text;
    const int64_t us = mJournal.lines[i].us;
    if (text.startsWith("PvmMain ")) {
        mBelieved = "1"; // what a start takes as routed
        if (mPicture == "?")
            take({Fact::Kind::Power, {}, "on"}, us);
    }
    take({Fact::Kind::Log, text, {}}, us);
    const QString request = requestOf(text);
    if (!request.isEmpty() && !isRefused(mJournal, i)) {
        if (mBelieved != request &&
            (!mBelieved.isEmpty() || backlightBehind(mJournal, i, kBacklightUs) > 0))
            route(request, us);
        mBelieved = request;
    }
    takeSignals(text, us);
}

/// What the bus and the board told the controller, in its words. With a log of the bus the car's
/// own frames tell that.
void Teller::takeSignals(const QString &text, int64_t us)
{
    const Said car = saidOfCar(text);
    if (!car.subject.isEmpty() && car.subject != "radar" && mFrames.empty() &&
        car.value != mSaid[car.subject]) {
        mSaid[car.subject] = car.value;
        mFacts.addCar(car.subject, car.value, us);
        mTimeline.note(us, "car", car.subject + ' ' + car.value);
    }
    const Said board = saidOfBoard(text);
    if (board.subject == "turn-switch" || board.subject == "initialised")
        take({Fact::Kind::Renderer, {}, board.subject + ' ' + board.value}, us);
    else if (!board.subject.isEmpty())
        take({Fact::Kind::Input, board.subject, board.value}, us);
    if (text.contains("=== feed wdt"))
        take({Fact::Kind::Watchdog, {}, "fed"}, us);
    if (text.contains("=== avm stop"))
        mTimeline.note(us, "watchdog", "no heartbeat: no longer fed");
    if (text.contains("#### System DateTime"))
        mTimeline.note(us, "clock", text.section("cmd:", 1));
    if (text.contains("SWITCH HARZARD shortly clicked"))
        mTimeline.note(us, "input", "switch clicked");
}

void Teller::route(const QString &request, int64_t us)
{
    const QString script = QString(places::kPictureScript) + ' ' + request;
    take({Fact::Kind::Command, script, "0"}, us);
    take({Fact::Kind::Picture, {}, request == "1" ? "PVM" : "DA"}, us);
    // How it ended no log tells: no fact, but the reasons take the picture as brought.
    mWhyTeller.take({Fact::Kind::Exit, script, "0"}, us);
}

void Teller::take(const Fact &fact, int64_t us)
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
