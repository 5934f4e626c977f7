// SPDX-License-Identifier: MIT

#pragma once

#include "bench/incident/journal.h"

#include <QMap>

#include <functional>

struct Said;

/// The car in a drive's words, from what the controller says of it. Times are the journal's.
class CarWords
{
public:
    using Put = std::function<void(int64_t us, const QString &words)>;

    /// @p car: what was said last, by subject; both ends of it write there. @p put takes the words
    /// as they are found, not in order of time.
    CarWords(const Journal &journal, int64_t zeroUs, QMap<QString, QString> &car, Put put)
        : mJournal(journal), mZeroUs(zeroUs), mCar(car), mPut(std::move(put))
    {}

    /// A line of the controller's. @p pvmUs: when PVM was last asked for, 0 if never.
    void take(size_t i, int64_t pvmUs);

    /// A start of the controller, with all that the bus then says: nobody says anything before.
    void wake(size_t start, int64_t endUs, bool isAsleep);

    /// One in the midst of a drive: what has changed meanwhile is there before it.
    void change(size_t start, int64_t endUs);

private:
    QMap<QString, QString> firstSaid(size_t start, int64_t endUs, int64_t *us) const;
    void putChanged(const QMap<QString, QString> &values, int64_t us);
    int64_t momentOf(const Said &said, int64_t us) const;
    int64_t slotUs(uint32_t identifier, int64_t us) const;
    void takeSpeed(size_t i, int64_t pvmUs);
    void setSpeed(const QString &told, int64_t us);

    const Journal &mJournal;
    const int64_t mZeroUs; ///< of drive time 0
    QMap<QString, QString> &mCar;
    const Put mPut;
};
