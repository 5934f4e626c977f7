// SPDX-License-Identifier: MIT

#pragma once

#include <QString>
#include <QStringList>

#include <functional>

/**
 * Tests told as stories: each step and everything that follows from it, in order.
 *
 *     [title]
 *     step with words -> first effect; second effect
 *     step without effect
 *
 * Effects are the lines of effects.h, log lines without their "log". `$NAME = text` at the
 * beginning of a line defines an abbreviation, `#` a comment. Steps of the seam itself, in every
 * story: `first STEP` runs a step whose effects are of no interest, `file PATH TEXT` (\n for a line
 * end), `fail write|ioctl|none`, `timers`, `now DATE TIME`.
 */
namespace stories {

using Run = std::function<void(const QStringList &words)>;

/// Fills the table of the calling test's _data function.
void load(const QString &path);

/// Plays the row that load() has made: @p run carries out a step by calling what is tested.
/// Effects that match @p ignored are left out. The first step that differs fails the test.
void play(const Run &run, const QString &ignored = QStringLiteral("^$"));

} // namespace stories
