// SPDX-License-Identifier: MIT

#pragma once

#include "bench/telling/timeline.h"

#include <QFileDevice>
#include <QJsonObject>
#include <QStringList>

class QCommandLineParser;
class QFile;

// What the command line says of a board and of how it is told, for every command that needs one:
// given to the bench inside the sandbox, and read there.

/// Adds the controller and the renderer to the sandbox's @p programs, and these and the rest to the
/// arguments of the bench @p inside. Returns what is wrong, or an empty text.
QString addBoardOptions(const QCommandLineParser &options, QStringList *programs,
                        QStringList *inside);

/// Whether the timeline may be coloured and its last line live.
bool isTerminal();

/// Inside.
Style styleOf(const QCommandLineParser &options);

/// Null without a descriptor.
QFileDevice *openOutput(const QString &descriptor, QFile *file);

/// Who plays what, and when: a page or a line of facts says for itself where it comes from.
QJsonObject runFacts(const QCommandLineParser &options, const QString &commandLine);
