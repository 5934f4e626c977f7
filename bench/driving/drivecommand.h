// SPDX-License-Identifier: MIT

#pragma once

#include <QStringList>

class QCommandLineParser;

/// The command of the bench that is for the bench itself, inside the sandbox.
constexpr char kDriveInside[] = "drive-inside";

/// Ends the process.
[[noreturn]] void showDriveHelp();

// Both return the exit code; what is wrong goes to @p fault, one line.

/// `pvm-bench drive`: a board in a sandbox, and somebody at its wheel.
int driveByHand(const QCommandLineParser &options, QString *fault);

/// The part of it inside the sandbox.
int driveInside(const QStringList &arguments, const QCommandLineParser &options, QString *fault);
