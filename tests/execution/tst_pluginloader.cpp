// SPDX-License-Identifier: MIT
// The plug-in loader against real libraries built with the tests: where a plug-in is found, how
// libraries are shared, loaded, refused and unloaded, and whether a workflow may be executed.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPlugin.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "execution/ExecutingRegistry.h"
#include "execution/Plugin.h"
#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"

#include <QCoreApplication>
#include <QtTest>

#include <memory>

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

const QString kCounting = QStringLiteral("libVmwfTestCountingPlugin.so");
const QString kNoEntry = QStringLiteral("libVmwfTestNoEntryPlugin.so");

WorkflowManagerImp* Imp()
{
    return WorkflowManagerImp::Instance();
}

std::unique_ptr<Workflow> MakeWorkflow(const QString& plugin, const QString& id = QStringLiteral("Id_Test"))
{
    auto workflow = std::make_unique<Workflow>();
    ImpOf(workflow.get())->Fields().Id = id;
    ImpOf(workflow.get())->Fields().Name = id;
    ImpOf(workflow.get())->Fields().Plugin = plugin;
    ImpOf(workflow.get())->Fields().IsTemplate = false;
    return workflow;
}

QString ApplicationFolder()
{
    return QCoreApplication::applicationDirPath();
}

// Whether the process has a file of that path mapped right now.
bool IsMapped(const QString& path)
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    if (!maps.open(QIODevice::ReadOnly))
        return false;
    const QByteArray wanted = QFile::encodeName(QFileInfo(path).canonicalFilePath());
    const QList<QByteArray> lines = maps.readAll().split('\n');
    for (const QByteArray& line : lines)
    {
        if (line.endsWith(" " + wanted))
            return true;
    }
    return false;
}

class Context : public HostApplicationContext
{
public:
    explicit Context(bool allow) : m_allow(allow) {}
    bool CanExecuteWorkflow(Workflow* workflow) override
    {
        asked.append(workflow);
        return m_allow;
    }
    void AddLaunchArguments(Workflow*, WorkflowArguments*) override {}
    int GetCurrentProductId(WideChar*, int) override { return 0; }
    bool BeforeExecuteWorkflow(Workflow*) override { return true; }
    QList<Workflow*> asked;

private:
    bool m_allow;
};

} // namespace

class tst_PluginLoader : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    std::unique_ptr<QTemporaryDir> m_dir;

    QString Log() const { return m_env.Root() + QStringLiteral("/plugin.log"); }
    QString MachineFolder() const { return m_env.Root() + QStringLiteral("/machine"); }
    QString Folder(const QString& name) const
    {
        const QString folder = m_dir->path() + QLatin1Char('/') + name;
        QDir().mkpath(folder);
        return folder;
    }
    // How often the log says event happened, in any library or in the one at path.
    int Count(const QString& event, const QString& path = QString()) const
    {
        const QString wanted = path.isEmpty() ? QString() : QFileInfo(path).canonicalFilePath();
        int count = 0;
        const QStringList lines =
            QString::fromUtf8(ReadFile(Log())).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        for (const QString& line : lines)
        {
            const QString lineEvent = line.section(QLatin1Char(' '), 0, 0);
            const QString linePath = line.section(QLatin1Char(' '), 1);
            if (lineEvent == event && (wanted.isEmpty() || QFileInfo(linePath).canonicalFilePath() == wanted))
                ++count;
        }
        return count;
    }
    static bool CopyPlugin(const QString& file, const QString& target)
    {
        return QFile::copy(ApplicationFolder() + QLatin1Char('/') + file, target);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        qputenv("VMWF_TEST_PLUGIN_LOG", QFile::encodeName(Log()));
        QVERIFY(QFileInfo(ApplicationFolder() + QLatin1Char('/') + kCounting).isFile());
        QVERIFY(QFileInfo(ApplicationFolder() + QLatin1Char('/') + kNoEntry).isFile());
        // A missing folder and empty parts around the one that exists. The settings file needs the
        // quotes: an unquoted ";" would start a comment there.
        QVERIFY(WriteFile(m_env.ConfigDirs() + QStringLiteral("/Velmora/Workflow/2017.conf"),
                          "[General]\nWorkflowPluginSearchPaths=\"" + QFile::encodeName(m_env.Root()) +
                              "/missing;;" + QFile::encodeName(MachineFolder()) + ";\"\n"));
    }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        QDir(MachineFolder()).removeRecursively();
        QVERIFY(QDir().mkpath(MachineFolder()));
        QFile::remove(Log());
        QVERIFY(WorkflowManager::Initialize());
    }

    void cleanup()
    {
        QVERIFY(WorkflowManager::Uninitialize());
        m_dir.reset();
    }

    void relativeNameIsLookedForInOrder_data()
    {
        QTest::addColumn<bool>("inConfigured");
        QTest::addColumn<bool>("inMachine");
        QTest::addColumn<QString>("expectedFolder");
        QTest::newRow("configured before machine and application")
            << true << true << QStringLiteral("configured");
        QTest::newRow("configured before application") << true << false << QStringLiteral("configured");
        QTest::newRow("machine before application") << false << true << QStringLiteral("machine");
        QTest::newRow("application last") << false << false << QStringLiteral("application");
    }

    void relativeNameIsLookedForInOrder()
    {
        QFETCH(bool, inConfigured);
        QFETCH(bool, inMachine);
        QFETCH(QString, expectedFolder);
        const QString configured = Folder(QStringLiteral("configured"));
        if (inConfigured)
            QVERIFY(CopyPlugin(kCounting, configured + QLatin1Char('/') + kCounting));
        if (inMachine)
            QVERIFY(CopyPlugin(kCounting, MachineFolder() + QLatin1Char('/') + kCounting));
        // A configured folder without the file comes first and is passed over.
        Imp()->SetWorkflowPluginSearchPaths(
            QStringLiteral(";%1;;%2;").arg(Folder(QStringLiteral("empty")), configured));

        const QString folder = expectedFolder == QLatin1String("configured") ? configured
                               : expectedFolder == QLatin1String("machine")  ? MachineFolder()
                                                                             : ApplicationFolder();
        auto workflow = MakeWorkflow(kCounting);
        Plugin* plugin = Imp()->PluginFor(workflow.get());
        QVERIFY(plugin);
        QCOMPARE(plugin->Path(), QDir::cleanPath(folder + QLatin1Char('/') + kCounting));
        QCOMPARE(Imp()->PluginFolderFor(workflow.get()), QDir::cleanPath(folder));
        QCOMPARE(plugin->State(), Plugin::NeverTried);
        QCOMPARE(Count(QStringLiteral("load")), 0);
    }

    void relativeConfiguredFolderIsMadeAbsolute()
    {
        const QString configured = Folder(QStringLiteral("relative"));
        QVERIFY(CopyPlugin(kCounting, configured + QLatin1Char('/') + kCounting));
        const QString previous = QDir::currentPath();
        QVERIFY(QDir::setCurrent(m_dir->path()));
        Imp()->SetWorkflowPluginSearchPaths(QStringLiteral("relative"));
        auto workflow = MakeWorkflow(kCounting);
        Plugin* plugin = Imp()->PluginFor(workflow.get());
        QVERIFY(QDir::setCurrent(previous));
        QVERIFY(plugin);
        QCOMPARE(plugin->Path(), QDir::cleanPath(configured + QLatin1Char('/') + kCounting));
        QCOMPARE(Imp()->PluginFolderFor(workflow.get()), QDir::cleanPath(configured));
    }

    void sameFileNameInTwoFoldersSharesOneLibrary()
    {
        const QString first = Folder(QStringLiteral("first"));
        const QString second = Folder(QStringLiteral("second"));
        QVERIFY(CopyPlugin(kCounting, first + QLatin1Char('/') + kCounting));
        const QString shouting = second + QLatin1Char('/') + kCounting.toUpper();
        QVERIFY(CopyPlugin(kCounting, shouting));
        Imp()->SetWorkflowPluginSearchPaths(first);

        auto relative = MakeWorkflow(kCounting, QStringLiteral("Id_Relative"));
        auto absolute = MakeWorkflow(shouting, QStringLiteral("Id_Absolute"));
        Plugin* plugin = Imp()->PluginFor(relative.get());
        QVERIFY(plugin);
        QCOMPARE(Imp()->PluginFor(absolute.get()), plugin);
        QCOMPARE(plugin->Path(), first + QLatin1Char('/') + kCounting);

        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(relative.get());
        QVERIFY(executor);
        QCOMPARE(WorkflowPrivate::GetWorkflowExecuteHandler(absolute.get()), executor);
        QCOMPARE(executor->ExecuteWorkflow(relative.get(), nullptr), 42);
        QCOMPARE(Count(QStringLiteral("entry")), 1);
        QCOMPARE(Count(QStringLiteral("load")), 1);
        QCOMPARE(Count(QStringLiteral("load"), first + QLatin1Char('/') + kCounting), 1);
        QVERIFY(!IsMapped(shouting));
    }

    void handlersAreAskedOnceAndNullAnswersAgain()
    {
        auto workflow = MakeWorkflow(kCounting);
        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get());
        QVERIFY(executor);
        QCOMPARE(WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get()), executor);
        QCOMPARE(Count(QStringLiteral("ask-execute")), 1);

        // The plug-in answers null the first time; the loader keeps asking until it gets one.
        QVERIFY(!WorkflowPrivate::GetWorkflowEditorHandler(workflow.get()));
        WorkflowEditorHandler* editor = WorkflowPrivate::GetWorkflowEditorHandler(workflow.get());
        QVERIFY(editor);
        QCOMPARE(WorkflowPrivate::GetWorkflowEditorHandler(workflow.get()), editor);
        QCOMPARE(Count(QStringLiteral("ask-editor")), 2);

        Plugin* plugin = Imp()->PluginFor(workflow.get());
        WorkflowLaunchHandler* launch = plugin->LaunchHandler();
        QVERIFY(launch);
        QCOMPARE(plugin->LaunchHandler(), launch);
        QCOMPARE(Count(QStringLiteral("ask-launch")), 1);
        QVERIFY(launch->PrepareLaunch(workflow.get(), nullptr));

        QCOMPARE(plugin->State(), Plugin::Loaded);
        QCOMPARE(Count(QStringLiteral("entry")), 1);
        QCOMPARE(Count(QStringLiteral("load")), 1);
    }

    void libraryWithoutEntryPointIsUnloadedAndNeverTriedAgain()
    {
        const QString path = ApplicationFolder() + QLatin1Char('/') + kNoEntry;
        auto workflow = MakeWorkflow(kNoEntry);
        QVERIFY(!WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get()));
        Plugin* plugin = Imp()->PluginFor(workflow.get());
        QVERIFY(plugin);
        QCOMPARE(plugin->State(), Plugin::Failed);
        QVERIFY(!plugin->IsLibraryLoaded());
        QCOMPARE(Count(QStringLiteral("load"), path), 1);
        QCOMPARE(Count(QStringLiteral("unload"), path), 1);
        QVERIFY(!IsMapped(path));

        QVERIFY(!WorkflowPrivate::GetWorkflowEditorHandler(workflow.get()));
        QVERIFY(!WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get()));
        QVERIFY(!plugin->LaunchHandler());
        QCOMPARE(plugin->State(), Plugin::Failed);
        QCOMPARE(Count(QStringLiteral("load"), path), 1);
    }

    void fileThatIsNoLibraryFailsCleanly()
    {
        const QString folder = Folder(QStringLiteral("broken"));
        QVERIFY(WriteFile(folder + QStringLiteral("/libBroken.so"), "this is text, not a library\n"));
        Imp()->SetWorkflowPluginSearchPaths(folder);
        auto workflow = MakeWorkflow(QStringLiteral("libBroken.so"));
        QVERIFY(!WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get()));
        Plugin* plugin = Imp()->PluginFor(workflow.get());
        QVERIFY(plugin);
        QCOMPARE(plugin->State(), Plugin::Failed);
        QVERIFY(!plugin->IsLibraryLoaded());
        QVERIFY(!WorkflowPrivate::GetWorkflowEditorHandler(workflow.get()));
        QCOMPARE(plugin->State(), Plugin::Failed);
    }

    void folderOrFifoIsNoPlugin()
    {
        const QString folder = Folder(QStringLiteral("odd"));
        QVERIFY(QDir().mkpath(folder + QStringLiteral("/libFolder.so")));
        QCOMPARE(::mkfifo(QFile::encodeName(folder + QStringLiteral("/libFifo.so")).constData(), 0600), 0);
        Imp()->SetWorkflowPluginSearchPaths(folder);

        for (const QString& name : {QStringLiteral("libFolder.so"), QStringLiteral("libFifo.so")})
        {
            auto relative = MakeWorkflow(name);
            QVERIFY(!Imp()->PluginFor(relative.get()));
            QVERIFY(Imp()->PluginFolderFor(relative.get()).isEmpty());
            QVERIFY(!WorkflowPrivate::GetWorkflowExecuteHandler(relative.get()));

            // Named by its full path it gets a record, which fails without opening anything.
            auto absolute = MakeWorkflow(folder + QLatin1Char('/') + name);
            QVERIFY(!WorkflowPrivate::GetWorkflowExecuteHandler(absolute.get()));
            Plugin* plugin = Imp()->PluginFor(absolute.get());
            QVERIFY(plugin);
            QCOMPARE(plugin->State(), Plugin::Failed);
        }

        // A folder that merely has the plug-in's name does not hide the real file further on.
        QVERIFY(QDir().mkpath(folder + QLatin1Char('/') + kCounting));
        auto workflow = MakeWorkflow(kCounting);
        Plugin* plugin = Imp()->PluginFor(workflow.get());
        QVERIFY(plugin);
        QCOMPARE(Imp()->PluginFolderFor(workflow.get()), ApplicationFolder());
    }

    void nullAndUnknownWorkflowsHaveNoPlugin()
    {
        QVERIFY(!Imp()->PluginFor(nullptr));
        QVERIFY(!WorkflowPrivate::GetWorkflowExecuteHandler(nullptr));
        QVERIFY(!WorkflowPrivate::GetWorkflowEditorHandler(nullptr));
        QVERIFY(!WorkflowPrivate::CanExecuteWorkflow(nullptr));

        auto none = MakeWorkflow(QString());
        QVERIFY(!Imp()->PluginFor(none.get()));
        QVERIFY(!WorkflowPrivate::GetWorkflowExecuteHandler(none.get()));

        auto unknown = MakeWorkflow(QStringLiteral("libNowhereToBeFound.so"));
        QVERIFY(!Imp()->PluginFor(unknown.get()));
        QVERIFY(!WorkflowPrivate::GetWorkflowEditorHandler(unknown.get()));
        QVERIFY(Imp()->PluginFolderFor(unknown.get()).isEmpty());

        // Without a manager there is nothing to ask.
        auto known = MakeWorkflow(kCounting);
        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(!WorkflowPrivate::GetWorkflowExecuteHandler(known.get()));
        QVERIFY(!WorkflowPrivate::CanExecuteWorkflow(known.get()));
        QVERIFY(WorkflowManager::Initialize());
        QCOMPARE(Count(QStringLiteral("load")), 0);
    }

    void uninitializeUnloadsTheLibraries()
    {
        const QString path = ApplicationFolder() + QLatin1Char('/') + kCounting;
        auto workflow = MakeWorkflow(kCounting);
        QVERIFY(WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get()));
        QVERIFY(IsMapped(path));
        QCOMPARE(Count(QStringLiteral("unload"), path), 0);

        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(!IsMapped(path));
        QCOMPARE(Count(QStringLiteral("unload"), path), 1);
        // No handler was asked for on the way out.
        QCOMPARE(Count(QStringLiteral("ask-editor")), 0);
        QCOMPARE(Count(QStringLiteral("ask-launch")), 0);

        // A new manager loads the library afresh.
        QVERIFY(WorkflowManager::Initialize());
        QVERIFY(WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get()));
        QCOMPARE(Count(QStringLiteral("load"), path), 2);
        QCOMPARE(Count(QStringLiteral("entry")), 2);
    }

    void foundFolderIsForgottenWhenTheWorkflowLeaves()
    {
        Imp()->SetWorkflowSearchPaths(Folder(QStringLiteral("workflows")));
        QVERIFY(Imp()->IsCatalogueLoaded());

        Workflow* deleted = MakeWorkflow(kCounting, QStringLiteral("Id_Deleted")).release();
        QVERIFY(Imp()->AddWorkflow(deleted));
        QVERIFY(Imp()->PluginFor(deleted));
        QCOMPARE(Imp()->PluginFolderFor(deleted), ApplicationFolder());
        QVERIFY(Imp()->DeleteWorkflow(QStringLiteral("Id_Deleted"), QString(), false));
        QVERIFY(Imp()->PluginFolderFor(deleted).isEmpty());

        Workflow* rescanned = MakeWorkflow(kCounting, QStringLiteral("Id_Rescanned")).release();
        QVERIFY(Imp()->AddWorkflow(rescanned));
        QVERIFY(Imp()->PluginFor(rescanned));
        QCOMPARE(Imp()->PluginFolderFor(rescanned), ApplicationFolder());
        Imp()->SetWorkflowSearchPaths(Folder(QStringLiteral("elsewhere")));
        QVERIFY(Imp()->Catalogue().isEmpty());
        QVERIFY(Imp()->PluginFolderFor(rescanned).isEmpty());
    }

    void hostContextMayVetoExecution()
    {
        auto workflow = MakeWorkflow(kCounting);
        // Nothing launched from this process is running, and no context says otherwise.
        QVERIFY(WorkflowPrivate::CanExecuteWorkflow(workflow.get()));

        Context refusing(false);
        Imp()->SetHostApplicationContext(&refusing);
        QVERIFY(!WorkflowPrivate::CanExecuteWorkflow(workflow.get()));
        QCOMPARE(refusing.asked, QList<Workflow*>{workflow.get()});

        Context allowing(true);
        Imp()->SetHostApplicationContext(&allowing);
        QVERIFY(WorkflowPrivate::CanExecuteWorkflow(workflow.get()));
        QCOMPARE(allowing.asked, QList<Workflow*>{workflow.get()});
        Imp()->SetHostApplicationContext(nullptr);

        // The plug-in has no say: it is not even loaded.
        QCOMPARE(Count(QStringLiteral("load")), 0);
    }

    void unfinishedLaunchOfThisProcessBlocksExecution()
    {
        const int self = static_cast<int>(QCoreApplication::applicationPid());
        const int parent = static_cast<int>(::getppid());
        auto mine = MakeWorkflow(kCounting, QStringLiteral("Id_Mine"));
        auto theirs = MakeWorkflow(kCounting, QStringLiteral("Id_Theirs"));
        QVERIFY(WorkflowPrivate::CanExecuteWorkflow(mine.get()));

        // A run another process launched does not count.
        QVERIFY(Imp()->Registry()->Add(theirs.get(), self, parent));
        QVERIFY(WorkflowPrivate::CanExecuteWorkflow(mine.get()));

        // A run this process launched and whose host still runs does.
        QVERIFY(Imp()->Registry()->Add(mine.get(), self, self));
        QVERIFY(!WorkflowPrivate::CanExecuteWorkflow(mine.get()));
        QVERIFY(!WorkflowPrivate::CanExecuteWorkflow(theirs.get()));

        // Once it has finished, the next launch is free again.
        QVERIFY(Imp()->Registry()->SetExitStatus(mine.get(), 5, QStringLiteral("done")));
        QVERIFY(WorkflowPrivate::CanExecuteWorkflow(mine.get()));

        // A refusing context still wins over an empty registry.
        Context refusing(false);
        Imp()->SetHostApplicationContext(&refusing);
        QVERIFY(!WorkflowPrivate::CanExecuteWorkflow(mine.get()));
        Imp()->SetHostApplicationContext(nullptr);
    }
};

QTEST_GUILESS_MAIN(tst_PluginLoader)
#include "tst_pluginloader.moc"
