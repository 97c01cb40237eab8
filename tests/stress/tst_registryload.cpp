// The executing-workflow registry under load: sixteen host processes register, change and read
// their entries at the same time for twenty seconds, while one more process takes the segment's
// lock and is killed holding it. No change any process was told succeeded may go missing, every
// process must finish within a bound, and the list must hold every entry at the end.

#include "execution/ExecutingRegistry.h"

#include "TestEnvironment.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QSet>
#include <QtTest>

#include <memory>
#include <vector>

#include <signal.h>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

constexpr int kWorkers = 16;
constexpr int kEntriesEach = 8;
constexpr int kRunMilliseconds = 20000;
// Far beyond the run itself: a process still running then is stuck, not slow.
constexpr int kBoundMilliseconds = kRunMilliseconds + 90000;

} // namespace

class tst_RegistryLoad : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }

    void sixteenProcessesLoseNoChange()
    {
        QVERIFY(QFile::exists(QStringLiteral(REGISTRY_WORKER_PATH)));
        std::vector<std::unique_ptr<QProcess>> workers;
        for (int i = 0; i < kWorkers; ++i)
        {
            auto worker = std::make_unique<QProcess>();
            worker->setProcessChannelMode(QProcess::SeparateChannels);
            worker->start(QStringLiteral(REGISTRY_WORKER_PATH),
                          {QStringLiteral("work"), QString::number(i), QString::number(kRunMilliseconds)});
            QVERIFY(worker->waitForStarted(10000));
            workers.push_back(std::move(worker));
        }

        // A quarter into the run a process takes the lock and dies holding it.
        QTest::qWait(kRunMilliseconds / 4);
        QProcess holder;
        holder.start(QStringLiteral(REGISTRY_WORKER_PATH), {QStringLiteral("hold")});
        QVERIFY(holder.waitForStarted(10000));
        QVERIFY(holder.waitForReadyRead(20000));
        QCOMPARE(holder.readLine().trimmed(), QByteArray("locked"));
        QTest::qWait(1000);
        ::kill(pid_t(holder.processId()), SIGKILL);
        QVERIFY(holder.waitForFinished(10000));

        const QDeadlineTimer bound(kBoundMilliseconds);
        long changes = 0;
        long failed = 0;
        long reads = 0;
        for (int i = 0; i < kWorkers; ++i)
        {
            QProcess& worker = *workers[size_t(i)];
            const bool finished = worker.waitForFinished(int(qMax<qint64>(1, bound.remainingTime())));
            if (!finished)
                worker.kill();
            QVERIFY2(finished, qPrintable(QStringLiteral("worker %1 did not finish in time").arg(i)));
            const QByteArray errors = worker.readAllStandardError();
            QVERIFY2(worker.exitStatus() == QProcess::NormalExit && worker.exitCode() == 0,
                     qPrintable(QStringLiteral("worker %1: exit %2: %3")
                                    .arg(i)
                                    .arg(worker.exitCode())
                                    .arg(QString::fromLocal8Bit(errors))));
            const QList<QByteArray> counts = worker.readAllStandardOutput().trimmed().split(' ');
            QCOMPARE(counts.size(), 3);
            QVERIFY2(counts.at(0).toLong() > 0, "a worker made no change at all");
            changes += counts.at(0).toLong();
            failed += counts.at(1).toLong();
            reads += counts.at(2).toLong();
        }

        // Every entry is there once, with the process that registered it.
        ExecutingRegistry registry(false);
        const QList<ExecutingWorkflowRecord> entries = registry.ReadAll();
        QCOMPARE(entries.size(), kWorkers * kEntriesEach);
        QSet<QString> ids;
        for (const ExecutingWorkflowRecord& entry : entries)
            ids.insert(entry.WorkflowId);
        QCOMPARE(ids.size(), kWorkers * kEntriesEach);
        qInfo("%d processes: %ld changes made and checked, %ld not made (lock not had in time), %ld "
              "whole-list reads",
              kWorkers, changes, failed, reads);
    }
};

QTEST_GUILESS_MAIN(tst_RegistryLoad)
#include "tst_registryload.moc"
