// Crash safety: a process that saves workflows, deletes workflows from a file of several, or
// writes per-user settings is killed with SIGKILL at a random moment, 500 times in all. After
// every kill each file must be read whole and hold a version at least as new as before the run
// (the old content or a newer one). A kill may leave a temporary file beside it for a moment, never
// for good: the next save of the same file removes it once no save can still be writing it.

#include <VmWorkflowCore/Workflow.h>

#include "util/FacadeAccess.h"
#include "util/XmlFiler.h"
#include "workflow/WorkflowImp.h"
#include "workflow/WorkflowSettings.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"

#include <QDomDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QtTest>

#include <signal.h>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

QChar LetterOf(unsigned long version)
{
    return QLatin1Char(char('A' + version % 26));
}

QStringList Entries(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

// The folder holds the file and at most what killed saves of it left: its name, a dot and six
// letters or digits. Counts those into left.
bool OnlyFileAndTemporaries(const QString& folder, const QString& file, int& left)
{
    const QRegularExpression temporary(QLatin1Char('^') + QRegularExpression::escape(file) +
                                       QStringLiteral("\\.[A-Za-z0-9]{6}$"));
    bool hasFile = false;
    for (const QString& name : Entries(folder))
    {
        if (name == file)
            hasFile = true;
        else if (temporary.match(name).hasMatch())
            ++left;
        else
            return false;
    }
    return hasFile;
}

// No save can still write a temporary file untouched for this long; the library's own rule is
// five seconds.
constexpr int kStaleAfterMs = 5500;

} // namespace

class tst_CrashSafety : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    QTemporaryDir m_dir;

    // Runs the child in mode until it says it has changed the file once, kills it after a random
    // pause, and leaves it dead.
    bool RunAndKill(const QString& mode, const QString& folder, unsigned long start)
    {
        QProcess child;
        child.start(QStringLiteral(CRASH_CHILD_PATH), {mode, folder, QString::number(start)});
        if (!child.waitForStarted(10000))
            return false;
        if (!child.waitForReadyRead(30000))
        {
            child.kill();
            child.waitForFinished(10000);
            qWarning("%s", child.readAllStandardError().constData());
            return false;
        }
        QTest::qSleep(int(QRandomGenerator::global()->bounded(25)));
        ::kill(pid_t(child.processId()), SIGKILL);
        return child.waitForFinished(10000) && child.exitStatus() == QProcess::CrashExit;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
    }

    void killedWhileSaving()
    {
        const QString folder = m_dir.filePath(QStringLiteral("save"));
        QVERIFY(QDir().mkpath(folder));
        unsigned long seen = 0;
        int leftBehind = 0;
        for (int kill = 0; kill < 170; ++kill)
        {
            QVERIFY(RunAndKill(QStringLiteral("save"), folder, seen + 1));
            QDomDocument document;
            QVERIFY2(document.setContent(ReadFile(folder + QStringLiteral("/Crash.workflow"))),
                     "the workflow file is not whole");
            const QDomElement workflow =
                document.documentElement().firstChildElement(QStringLiteral("Workflow"));
            const unsigned long version = workflow.attribute(QStringLiteral("Tag")).toULong();
            QVERIFY(version >= qMax(1ul, seen));
            QCOMPARE(workflow.attribute(QStringLiteral("Description")), QString(60000, LetterOf(version)));
            seen = version;
            QVERIFY2(OnlyFileAndTemporaries(folder, QStringLiteral("Crash.workflow"), leftBehind),
                     qPrintable(Entries(folder).join(u' ')));
        }
        // The next save, once nothing can be writing them, leaves none behind.
        QTest::qWait(kStaleAfterMs);
        Workflow workflow;
        QVERIFY(ImpOf(workflow)->Load(folder + QStringLiteral("/Crash.workflow"), QString()));
        QVERIFY(ImpOf(workflow)->Save());
        QCOMPARE(Entries(folder), QStringList{QStringLiteral("Crash.workflow")});
        qInfo("170 kills while saving: %d temporary files seen beside the file after a kill", leftBehind);
    }

    void killedWhileDeletingFromAFileOfSeveral()
    {
        const QString folder = m_dir.filePath(QStringLiteral("delete"));
        QVERIFY(QDir().mkpath(folder));
        unsigned long seen = 0;
        int leftBehind = 0;
        for (int kill = 0; kill < 165; ++kill)
        {
            QVERIFY(RunAndKill(QStringLiteral("delete"), folder, seen + 1));
            QDomDocument document;
            QVERIFY2(document.setContent(ReadFile(folder + QStringLiteral("/Multi.workflow"))),
                     "the workflow file is not whole");
            // One generation, whole elements, and the ones still there are the last ones.
            QStringList ids;
            unsigned long generation = 0;
            for (QDomElement workflow = document.documentElement().firstChildElement(); !workflow.isNull();
                 workflow = workflow.nextSiblingElement())
            {
                const unsigned long tag = workflow.attribute(QStringLiteral("Tag")).toULong();
                if (generation == 0)
                    generation = tag;
                QCOMPARE(tag, generation);
                QCOMPARE(workflow.attribute(QStringLiteral("Description")),
                         QString(20000, LetterOf(generation)));
                if (workflow.attribute(QStringLiteral("Id")) != QLatin1String("T"))
                    ids << workflow.attribute(QStringLiteral("Id"));
            }
            QVERIFY(generation >= qMax(1ul, seen));
            QVERIFY(!ids.isEmpty());
            QStringList expected;
            for (int i = 8 - int(ids.size()); i < 8; ++i)
                expected << QStringLiteral("D%1").arg(i);
            QCOMPARE(ids, expected);
            seen = generation;
            QVERIFY2(OnlyFileAndTemporaries(folder, QStringLiteral("Multi.workflow"), leftBehind),
                     qPrintable(Entries(folder).join(u' ')));
        }
        QTest::qWait(kStaleAfterMs);
        XmlFiler filer(false);
        QVERIFY(filer.Open(folder + QStringLiteral("/Multi.workflow")));
        QVERIFY(filer.Save(folder + QStringLiteral("/Multi.workflow")));
        QCOMPARE(Entries(folder), QStringList{QStringLiteral("Multi.workflow")});
        qInfo("165 kills while deleting: %d temporary files seen beside the file after a kill", leftBehind);
    }

    void killedWhileWritingSettings()
    {
        const QString folder = WorkflowSettingsFolder();
        unsigned long seen = 0;
        int leftBehind = 0;
        for (int kill = 0; kill < 165; ++kill)
        {
            QVERIFY(RunAndKill(QStringLiteral("settings"), m_dir.path(), seen + 1));
            QDomDocument document;
            QVERIFY2(document.setContent(ReadFile(WorkflowSettingsFile())), "the settings file is not whole");
            // Other tests' runs may have written settings of their own workflows too.
            QDomElement workflow = document.documentElement()
                                       .firstChildElement(QStringLiteral("Workflows"))
                                       .firstChildElement(QStringLiteral("Workflow"));
            while (!workflow.isNull() &&
                   workflow.attribute(QStringLiteral("Id")) != QLatin1String("Id_Crash"))
                workflow = workflow.nextSiblingElement(QStringLiteral("Workflow"));
            QVERIFY(!workflow.isNull());
            const QString value = workflow.attribute(QStringLiteral("Big"));
            const unsigned long version = value.section(QLatin1Char(':'), 0, 0).toULong();
            QVERIFY(version >= qMax(1ul, seen));
            QCOMPARE(value.section(QLatin1Char(':'), 1), QString(60000, LetterOf(version)));
            seen = version;
            QVERIFY2(OnlyFileAndTemporaries(folder, QStringLiteral("WorkflowSettings.xml"), leftBehind),
                     qPrintable(Entries(folder).join(u' ')));
        }
        QTest::qWait(kStaleAfterMs);
        WorkflowSettingsStore().Write(QStringLiteral("Id_Crash"), QStringLiteral("After"),
                                      QStringLiteral("1"));
        QCOMPARE(WorkflowSettingsStore().Read(QStringLiteral("Id_Crash"), QStringLiteral("After")),
                 QStringLiteral("1"));
        QCOMPARE(Entries(folder), QStringList{QStringLiteral("WorkflowSettings.xml")});
        qInfo("165 kills while writing settings: %d temporary files seen beside the file after a kill",
              leftBehind);
    }
};

QTEST_GUILESS_MAIN(tst_CrashSafety)
#include "tst_crashsafety.moc"
