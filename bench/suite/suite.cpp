// SPDX-License-Identifier: MIT

#include "bench/suite/suite.h"

#include "bench/board/printable.h"
#include "bench/board/stopsignal.h"
#include "bench/playing/player.h"
#include "bench/suite/indexpage.h"
#include "bench/suite/junit.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

#include <algorithm>
#include <csignal>
#include <memory>
#include <utility>
#include <vector>

namespace {

constexpr int kLookMs = 200; ///< between two looks at signals, and at the clock of the last line
constexpr int kColumns = 80;
constexpr int kFailuresTold = 10; ///< of one drive

class Suite : public QObject
{
    struct Run
    {
        int number; ///< of the drive
        QElapsedTimer since;
        QProcess process;
    };

public:
    Suite(const SuitePlan &plan, QTextStream &out)
        : mPlan(plan), mOut(out), mPages(pageNames(plan.drives)), mVerdicts(plan.drives.size())
    {
        connect(&mLook, &QTimer::timeout, this, &Suite::look);
    }

    int play(QString *fault)
    {
        *fault = open();
        if (!fault->isEmpty())
            return kBadInput;
        stopsignal::await();
        mSince.start();
        mLook.start(kLookMs);
        fillUp();
        if (!mRuns.empty())
            mLoop.exec();
        showLive({});
        tellEnd();
        *fault = write();
        return !fault->isEmpty()         ? kUnwritten
               : stopsignal::told() != 0 ? 128 + stopsignal::told()
                                         : status();
    }

private:
    /// What an earlier run has left is gone before the first drive.
    QString open()
    {
        if (!mFolder.isValid())
            return mFolder.errorString();
        if (!mPlan.reports.isEmpty())
            QDir().mkpath(mPlan.reports);
        mJunit.setFileName(mPlan.junit);
        if (!mPlan.junit.isEmpty() && !mJunit.open(QIODevice::WriteOnly))
            return mPlan.junit + ": " + mJunit.errorString();
        if (mPlan.reports.isEmpty())
            return {};
        for (const QString &page : mPages)
            QFile::remove(QDir(mPlan.reports).filePath(page));
        mIndex.setFileName(QDir(mPlan.reports).filePath("index.html"));
        return mIndex.open(QIODevice::WriteOnly) ? QString()
                                                 : mIndex.fileName() + ": " + mIndex.errorString();
    }

    bool isStopping() const
    {
        return stopsignal::told() != 0 || mIsOutputBroken || (mPlan.isFailFast && status() != 0);
    }

    int status() const
    {
        int status = 0;
        for (const Verdict &verdict : mVerdicts)
            status = std::max(status, verdict.status);
        return status;
    }

    void fillUp()
    {
        while (!isStopping() && mNext < mPlan.drives.size() && int(mRuns.size()) < mPlan.jobs)
            start(mNext++);
        if (mRuns.empty())
            mLoop.quit();
    }

    void start(int number)
    {
        mRuns.push_back(std::make_unique<Run>());
        Run &run = *mRuns.back();
        run.number = number;
        run.since.start();
        // It ends with this process, however that ends.
        QStringList words{"--pdeathsig", "TERM", QCoreApplication::applicationFilePath(), "play"};
        words += mPlan.options;
        words << "--json" << facts(number);
        if (!mPlan.reports.isEmpty())
            words << "--report" << report(number);
        words << "--" << mPlan.drives[number].path;
        run.process.setProcessChannelMode(QProcess::MergedChannels);
        run.process.setStandardInputFile(QProcess::nullDevice());
        run.process.setStandardOutputFile(output(number));
        connect(&run.process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
                [this, &run] { take(run); });
        connect(&run.process, &QProcess::errorOccurred, this,
                [this, &run](QProcess::ProcessError error) {
                    if (error == QProcess::FailedToStart)
                        take(run);
                });
        run.process.start("setpriv", words);
    }

    QString facts(int number) const { return mFolder.filePath(QString::number(number) + ".facts"); }
    QString output(int number) const { return mFolder.filePath(QString::number(number) + ".out"); }
    QString report(int number) const { return QDir(mPlan.reports).filePath(mPages[number]); }

    void take(const Run &run)
    {
        const int number = run.number;
        const bool isEnded = run.process.error() == QProcess::UnknownError;
        Verdict &verdict = mVerdicts[number];
        verdict = judge(mPlan.drives[number].path, isEnded ? run.process.exitCode() : -1,
                        facts(number), output(number), mPlan.isStrict);
        verdict.seconds = static_cast<double>(run.since.elapsed()) / 1000;
        QFile::remove(facts(number));
        QFile::remove(output(number));
        tell(verdict, verdict.line(mPlan.drives[number].path));
        // The process is the one that says so: it goes when it has said all.
        QTimer::singleShot(0, this, [this, &run] { remove(run); });
    }

    void remove(const Run &run)
    {
        mRuns.erase(std::find_if(mRuns.begin(), mRuns.end(),
                                 [&run](const auto &other) { return other.get() == &run; }));
        fillUp();
    }

    void look()
    {
        if (stopsignal::told() != 0 || mIsOutputBroken)
            stop();
        QStringList playing;
        for (const auto &run : mRuns)
            playing << QStringLiteral("%1 %2 s")
                           .arg(QFileInfo(mPlan.drives[run->number].path).completeBaseName())
                           .arg(run->since.elapsed() / 1000);
        showLive(QStringLiteral("%1; now %2").arg(counts(), playing.join(", ")));
    }

    /// Each ends with its figures so far.
    void stop()
    {
        if (std::exchange(mIsStopped, true))
            return;
        for (const auto &run : mRuns)
            run->process.terminate();
    }

    QString fitting(const QString &text, int columns) const
    {
        return mPlan.isVerbose || text.size() <= columns ? printable(text, 1000)
                                                         : printable(text, columns - 3);
    }

    void tell(const Verdict &verdict, const QString &text)
    {
        showLive({});
        const QString head = QStringLiteral("%1 %2 s  ")
                                 .arg(Verdict::wordOf(verdict.fate), -16)
                                 .arg(QString::number(verdict.seconds, 'f', 1), 7);
        mOut << head << fitting(text, kColumns - int(head.size())) << '\n';
        mOut.flush();
        mIsOutputBroken |= mOut.status() != QTextStream::Ok;
    }

    void showLive(const QString &text)
    {
        if (!mPlan.isTerminal)
            return;
        mOut << "\r\033[K" << fitting(text, kColumns - 1);
        mOut.flush();
    }

    /// "3 of 15 drives: 2 held, 1 FAILED"
    QString counts() const
    {
        QMap<Verdict::Fate, int> fates;
        for (const Verdict &verdict : mVerdicts)
            ++fates[verdict.fate];
        const auto all = mVerdicts.size();
        const auto played = all - fates.take(Verdict::Fate::NotPlayed);
        QStringList counts;
        for (auto fate = fates.begin(); fate != fates.end(); ++fate)
            counts << QStringLiteral("%1 %2").arg(fate.value()).arg(Verdict::wordOf(fate.key()));
        return QStringLiteral("%1%2 drive%3: %4")
            .arg(played < all ? QStringLiteral("%1 of ").arg(played) : QString())
            .arg(all)
            .arg(all == 1 ? "" : "s", counts.join(", "));
    }

    void tellEnd()
    {
        for (int i = 0; i < mVerdicts.size(); ++i) {
            const Verdict &verdict = mVerdicts[i];
            if (verdict.status == 0)
                continue;
            mOut << '\n';
            for (const QString &failure : verdict.failures.mid(0, kFailuresTold))
                mOut << Verdict::wordOf(verdict.fate) << ": " << printable(failure, 1000) << '\n';
            if (verdict.failures.size() > kFailuresTold)
                mOut << "  and " << verdict.failures.size() - kFailuresTold << " more\n";
            if (hasReport(i))
                mOut << "  to look at it: " << report(i) << '\n';
        }
        mSummary = QStringLiteral("%1; %2 s, %3 at once")
                       .arg(counts(), QString::number(seconds(), 'f', 1))
                       .arg(mPlan.jobs);
        mOut << '\n' << mSummary << '\n';
        mOut.flush();
        mIsOutputBroken |= mOut.status() != QTextStream::Ok;
    }

    double seconds() const { return static_cast<double>(mSince.elapsed()) / 1000; }
    bool hasReport(int number) const
    {
        return !mPlan.reports.isEmpty() && QFileInfo::exists(report(number));
    }

    /// Returns what could not be written.
    QString write()
    {
        if (mJunit.isOpen() &&
            (!writeJunit(&mJunit, mPlan.drives, mVerdicts, seconds()) || !mJunit.flush()))
            return mPlan.junit + ": " + mJunit.errorString();
        QStringList pages;
        for (int i = 0; i < mPages.size(); ++i)
            pages << (hasReport(i) ? mPages[i] : QString());
        if (mIndex.isOpen() &&
            (!writeIndexPage(&mIndex, mPlan.drives, mVerdicts, pages, mSummary) || !mIndex.flush()))
            return mIndex.fileName() + ": " + mIndex.errorString();
        return mIsOutputBroken ? "standard output: nobody reads it any more" : QString();
    }

    const SuitePlan &mPlan;
    QTextStream &mOut;
    const QStringList mPages; ///< names in the folder of reports
    QVector<Verdict> mVerdicts;
    QTemporaryDir mFolder; ///< for what the drives' benches write
    QFile mJunit;
    QFile mIndex;
    QString mSummary;
    QElapsedTimer mSince;
    std::vector<std::unique_ptr<Run>> mRuns;
    int mNext = 0; ///< the drive that is begun next
    bool mIsStopped = false;
    bool mIsOutputBroken = false;
    QTimer mLook;
    QEventLoop mLoop;
};

} // namespace

int playSuite(const SuitePlan &plan, QTextStream &out, QString *fault)
{
    return Suite(plan, out).play(fault);
}
