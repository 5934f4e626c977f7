// SPDX-License-Identifier: MIT

#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>

/**
 * Tests told as stories: each step and everything that follows from it, in order. The stories of
 * stories/NAME.stories are played by the test function NAME.
 *
 *     [title]
 *     verb word word -> first effect; second effect
 *     step without effect; another; a third -> its effect
 *     verb 6+1 -> effect        the same as verb 6; verb 1 -> effect
 *
 * Effects are the lines of effects.h, log lines without their "log". A blank at an effect's end is
 * written \s. `$NAME = text` at the beginning of a line defines an abbreviation, `#` a comment.
 *
 * Verbs of every story: `first STEP` is a step whose effects are of no interest; `file PATH TEXT`
 * (\n for a line end); `fail write` and `fail none`; `timers` makes them effects; `fire MS` is the
 * timeout of the timer that was last started with that interval; `now DATE TIME`.
 */
namespace stories {

/// What stands behind the verb.
class Words : public QStringList
{
public:
    explicit Words(const QStringList &words) : QStringList(words) {}
    int number(int index = 0, int base = 10) const { return value(index).toInt(nullptr, base); }
    bool isOn() const { return number() == 1; }
    QString text(int from) const { return mid(from).join(' ').replace("\\n", "\n"); }
};

using Args = const Words &;
using Verbs = QHash<QString, std::function<void(Args)>>;

/// Fills the table of the function @p name: call it in that function's _data.
void load(const char *name);

/// Plays the row that load() has made. Effects that match @p ignored are left out. The first step
/// that differs fails the test, with its file and line.
void play(const Verbs &verbs, const QString &ignored = QStringLiteral("^$"));

} // namespace stories
