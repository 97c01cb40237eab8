// SPDX-License-Identifier: MIT
// Dates in .workflow files are UTC whatever the local zone: reading, writing back and the seconds
// at the interface must agree in zones with daylight saving, around the hours the clocks skip or
// repeat. CTest runs this program once per zone with TZ set before it starts.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QDomDocument>
#include <QTimeZone>
#include <QtTest>

#include <limits>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

// Seconds since the epoch of a UTC wall-clock time, counted without any time-zone machinery.
qint64 UtcSeconds(int y, int mo, int d, int h, int mi, int s)
{
    return QDate(1970, 1, 1).daysTo(QDate(y, mo, d)) * 86400 + h * 3600 + mi * 60 + s;
}

QString AttributeOfFirstWorkflow(const QString& path, const QString& name)
{
    QDomDocument document;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || !document.setContent(&file))
        return QStringLiteral("<unreadable>");
    return document.documentElement().firstChildElement(QStringLiteral("Workflow")).attribute(name);
}

} // namespace

class tst_WorkflowDates : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    QTemporaryDir m_dir;

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
        // The zone under test must really be the process's zone, or the cases below prove nothing.
        const QByteArray zone = qgetenv("TZ");
        if (!zone.isEmpty())
            QCOMPARE(QTimeZone::systemTimeZoneId(), zone);
    }
    void init() { QVERIFY(WorkflowManager::Initialize()); }
    void cleanup() { QVERIFY(WorkflowManager::Uninitialize()); }

    void readWriteAndInterfaceAgree_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<qint64>("seconds");
        // Wall-clock times that some zone below skips (spring) or passes twice (autumn).
        QTest::newRow("berlin-gap") << "2021-03-28T02:30:00" << UtcSeconds(2021, 3, 28, 2, 30, 0);
        QTest::newRow("berlin-overlap") << "2021-10-31T02:30:00" << UtcSeconds(2021, 10, 31, 2, 30, 0);
        QTest::newRow("newyork-gap") << "2021-03-14T02:30:00" << UtcSeconds(2021, 3, 14, 2, 30, 0);
        QTest::newRow("newyork-overlap") << "2021-11-07T01:30:00" << UtcSeconds(2021, 11, 7, 1, 30, 0);
        QTest::newRow("lordhowe-gap") << "2021-10-03T02:15:00" << UtcSeconds(2021, 10, 3, 2, 15, 0);
        QTest::newRow("lordhowe-overlap") << "2021-04-04T01:45:00" << UtcSeconds(2021, 4, 4, 1, 45, 0);
        QTest::newRow("chatham-gap") << "2021-09-26T03:00:00" << UtcSeconds(2021, 9, 26, 3, 0, 0);
        QTest::newRow("chatham-overlap") << "2021-04-04T03:00:00" << UtcSeconds(2021, 4, 4, 3, 0, 0);
        QTest::newRow("epoch") << "1970-01-01T00:00:00" << qint64(0);
        QTest::newRow("plain") << "2015-11-20T13:14:15" << UtcSeconds(2015, 11, 20, 13, 14, 15);
    }
    void readWriteAndInterfaceAgree()
    {
        QFETCH(QString, text);
        QFETCH(qint64, seconds);
        const QString path = m_dir.filePath(QStringLiteral("Dated.workflow"));
        const QByteArray attributes = "Id=\"d\" Name=\"Dated\" IsTemplate=\"False\" CreatedDate=\"" +
                                      text.toUtf8() + "\" LastModifiedDate=\"" + text.toUtf8() + "\"";
        QVERIFY(WriteFile(path, WorkflowDocument(WorkflowElement(attributes))));

        Workflow workflow;
        QVERIFY(workflow.Load(Wide(path), Wide(QString())));
        QCOMPARE(qint64(workflow.GetCreatedDate()), seconds);
        QCOMPARE(qint64(workflow.GetLastModifiedDate()), seconds);
        QCOMPARE(ImpOf(workflow)->Fields().CreatedDate.toSecsSinceEpoch(), seconds);

        // Written back, the created date is the text that was read.
        QVERIFY(workflow.Save());
        QCOMPARE(AttributeOfFirstWorkflow(path, QStringLiteral("CreatedDate")), text);

        Workflow again;
        QVERIFY(again.Load(Wide(path), Wide(QString())));
        QCOMPARE(qint64(again.GetCreatedDate()), seconds);
    }

    void datesOutsideTheInterfaceRangeStopAtItsEnds_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<qint64>("seconds");
        const qint64 largest = std::numeric_limits<unsigned int>::max();
        QTest::newRow("minute before epoch") << "1969-12-31T23:59:00" << qint64(0);
        QTest::newRow("long before") << "1601-01-01T00:00:00" << qint64(0);
        QTest::newRow("last second") << "2106-02-07T06:28:15" << largest;
        QTest::newRow("one second after") << "2106-02-07T06:28:16" << largest;
        QTest::newRow("far after") << "9999-12-31T23:59:59" << largest;
    }
    void datesOutsideTheInterfaceRangeStopAtItsEnds()
    {
        QFETCH(QString, text);
        QFETCH(qint64, seconds);
        const QString path = m_dir.filePath(QStringLiteral("Range.workflow"));
        QVERIFY(WriteFile(
            path, WorkflowDocument(WorkflowElement("Id=\"r\" CreatedDate=\"" + text.toUtf8() + "\""))));
        Workflow workflow;
        QVERIFY(workflow.Load(Wide(path), Wide(QString())));
        QCOMPARE(qint64(workflow.GetCreatedDate()), seconds);
        QCOMPARE(qint64(workflow.GetLastModifiedDate()), seconds);
    }

    void modificationTimeIsWrittenInUtc()
    {
        const QString path = m_dir.filePath(QStringLiteral("Now.workflow"));
        QVERIFY(
            WriteFile(path, WorkflowDocument(WorkflowElement("Id=\"n\" Name=\"Now\" IsTemplate=\"False\""))));
        Workflow workflow;
        QVERIFY(workflow.Load(Wide(path), Wide(QString())));
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        QVERIFY(workflow.Save());
        const qint64 after = QDateTime::currentSecsSinceEpoch();
        const QString written = AttributeOfFirstWorkflow(path, QStringLiteral("LastModifiedDate"));
        const QDateTime parsed = QDateTime::fromString(written + QLatin1Char('Z'), Qt::ISODate);
        QVERIFY2(parsed.isValid(), qPrintable(written));
        QVERIFY(parsed.toSecsSinceEpoch() >= before && parsed.toSecsSinceEpoch() <= after);
        QVERIFY(qint64(workflow.GetLastModifiedDate()) >= before);
    }
};

QTEST_GUILESS_MAIN(tst_WorkflowDates)
#include "tst_workflowdates.moc"
