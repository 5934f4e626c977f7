// SPDX-License-Identifier: MIT

#pragma once

#include <QProcess>

/// The renderer stand-in's process: commands go in, what it has received comes out.
class RendererProcess : public QObject
{
    Q_OBJECT

public:
    explicit RendererProcess(QObject *parent = nullptr);
    ~RendererProcess() override; ///< kills it

    bool isRunning() const { return mProcess.state() != QProcess::NotRunning; }
    void start();
    void kill();                             ///< SIGKILL; ended() follows before it returns
    void command(const QByteArray &command); ///< one line, as the renderer's usage lists them

Q_SIGNALS:
    void ended();
    void attached(); ///< the link with the controller works
    void holding();  ///< it keeps the segment to itself
    void record(const QString &field, const QString &value);

private:
    void readLines();

    QProcess mProcess;
};
