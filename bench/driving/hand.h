// SPDX-License-Identifier: MIT

#pragma once

#include "bench/language/statement.h"
#include "bench/why/whyreader.h"

#include <QMap>

/// A key that does at once what one does often.
enum class Key { Faster, Slower, Left, Right, Park, Reverse, Neutral, Drive, Click };

/// What somebody who drives by hand may say, and the vehicle as it is in their hands.
class Hand
{
public:
    /// @p hasVehicle: made of words, not a live bus. @p hasStandIn: the renderer is the bench's.
    Hand(bool hasVehicle, bool hasStandIn) : mHasVehicle(hasVehicle), mHasStandIn(hasStandIn) {}

    /// Reads words that are to happen now. Returns what is wrong, or an empty text.
    QString read(const QString &words, Statement *statement);

    /// What a key says.
    QString wordsOf(Key key) const;

    /// What the vehicle has sent.
    void takeFrame(const BusFrame &frame);

    /// One line: picture, gear, speed, why.
    QString status(const QString &picture, const Why &why) const;

    /// The keys, a line each.
    static QStringList help();

private:
    QString turnTo(const QString &side) const;
    int speed() const { return mSaid.value("speed", mTold.value("speed")).toInt(); }

    const bool mHasVehicle;
    const bool mHasStandIn;
    bool mIsRendererTouched = false;
    QMap<QString, QString> mTold; ///< gear, light, speed and the like, by subject
    QMap<QString, QString> mSaid; ///< speed and light, where the frames still follow
};
