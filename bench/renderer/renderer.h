// SPDX-License-Identifier: MIT

#pragma once

#include "bench/renderer/linkprobe.h"
#include "devicedata/devicedatashare.h"

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QTimer>

#include <memory>

class SharedMemoryControl;

/**
 * Stands for the process that draws the panoramic view: the renderer's end of the link, told what
 * to say by lines on standard input and telling on standard output what it has received.
 */
class Renderer : public QObject
{
    Q_OBJECT

public:
    /// The flags as they are before the first exchange: "heartbeat", "turn-switch",
    /// "initialised", "slog".
    using Flags = QMap<QByteArray, bool>;
    static Flags usualFlags();

    explicit Renderer(const Flags &flags, QObject *parent = nullptr);
    ~Renderer() override;

public Q_SLOTS:
    void on_recordChanged();

private:
    void readCommands();
    void handleCommand(const QByteArray &line);
    void setFlag(const QByteArray &flag, bool on);
    void checkLink();

    std::unique_ptr<SharedMemoryControl> mLink;
    LinkProbe mProbe;
    QTimer mHeartbeat;
    QTimer mProbeTimer;
    QByteArray mInput;                     ///< the beginning of a line
    QMap<QByteArray, QByteArray> mPrinted; ///< text of each field, as last printed
};
