// SPDX-License-Identifier: MIT

#pragma once

#include "bench/incident/journal.h"
#include "bench/telling/facts.h"
#include "bench/telling/timeline.h"
#include "bench/telling/whyteller.h"

/// Tells a journal as the player tells a drive: to a timeline, and as facts.
class Teller
{
public:
    Teller(const Journal &journal, const std::vector<BusFrame> &frames, QTextStream &out,
           const Style &style, QFileDevice *json);

    Facts &facts() { return mFacts; }

    /// What lies between two of the journal's times.
    void tell(int64_t fromUs, int64_t toUs);

private:
    void send(const BusFrame &frame);
    void takeManagers(const JournalLine &line);
    void takeLine(size_t i);
    void takeSignals(const QString &text, int64_t us);
    void route(const QString &request, int64_t us);
    void take(const Fact &fact, int64_t us);

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
