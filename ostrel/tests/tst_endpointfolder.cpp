// SPDX-License-Identifier: MIT
// Where endpoints go when the usual runtime folder is not this user's alone: a folder another user
// made beforehand, or one anybody may write to, is never used; a private folder of our own is,
// and processes started from here find it too.

#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/ApplicationMessage.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Velmora::OstrelAdapter;

namespace {

const QFile::Permissions kOwnerOnly = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                      QFile::ReadUser | QFile::WriteUser | QFile::ExeUser;

bool MakeFolder(const QString& path, mode_t mode)
{
    const QByteArray native = QFile::encodeName(path);
    return ::mkdir(native.constData(), 0700) == 0 && ::chmod(native.constData(), mode) == 0;
}

} // namespace

class tst_EndpointFolder : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir m_root;
    int m_case = 0;

    ApplicationManager* Hub() { return ApplicationManager::GetInstance(); }
    // A fresh temporary folder for one case, so that no case sees what another made.
    QString CaseFolder()
    {
        const QString folder = m_root.path() + QStringLiteral("/case%1").arg(++m_case);
        return QDir().mkpath(folder) ? folder : QString();
    }

    // The hub listens, outside avoided, in folders of this user's alone from the temporary folder
    // down, and answers there.
    void CheckPrivateEndpoint(const QString& avoided, const QString& temporary)
    {
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("Tests")));
        const QString endpoint = Hub()->GetEndpoint();
        QVERIFY(!endpoint.isEmpty());
        QVERIFY2(!endpoint.startsWith(avoided + QLatin1Char('/')), qPrintable(endpoint));
        QVERIFY2(endpoint.startsWith(temporary + QLatin1Char('/')), qPrintable(endpoint));
        for (QString folder = QFileInfo(endpoint).path(); folder != temporary;
             folder = QFileInfo(folder).path())
        {
            const QFileInfo info(folder);
            QVERIFY2(info.isDir() && !info.isSymLink(), qPrintable(folder));
            QCOMPARE(info.ownerId(), uint(::geteuid()));
            QCOMPARE(info.permissions(), kOwnerOnly);
        }
        QCOMPARE(QFileInfo(ApplicationManager::EndpointFor(1234)).path(), QFileInfo(endpoint).path());
        QVERIFY(QDir(avoided).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).isEmpty());
        QLocalSocket socket;
        socket.connectToServer(endpoint);
        QVERIFY(socket.waitForConnected(2000));
    }

private slots:
    void initTestCase() { QVERIFY(m_root.isValid()); }
    void init()
    {
        qunsetenv("VELMORA_PRIVATE_RUNTIME_DIR");
        qunsetenv("XDG_RUNTIME_DIR");
    }
    void cleanup() { ApplicationManager::Uninitialize(); }

    void runtimeFolderOfAnotherUserIsNotUsed()
    {
        if (::geteuid() != 0)
            QSKIP("Only root can give a folder to another user.");
        const QString temporary = CaseFolder();
        qputenv("TMPDIR", QFile::encodeName(temporary));
        const QString foreign = temporary + QStringLiteral("/runtime-uid0");
        QVERIFY(MakeFolder(foreign, 0700));
        QVERIFY(::chown(QFile::encodeName(foreign).constData(), 65534, 65534) == 0);
        CheckPrivateEndpoint(foreign, temporary);
        QCOMPARE(QFileInfo(foreign).ownerId(), 65534u);
    }

    void runtimeFolderOthersMayWriteIsNotUsed()
    {
        const QString temporary = CaseFolder();
        qputenv("TMPDIR", QFile::encodeName(temporary));
        const QString open = temporary + QStringLiteral("/runtime-uid%1").arg(::geteuid());
        QVERIFY(MakeFolder(open, 0777));
        CheckPrivateEndpoint(open, temporary);
        // Somebody else's mistake is not repaired behind their back.
        QCOMPARE(QFileInfo(open).permissions() & QFile::WriteOther, QFile::WriteOther);
    }

    void runtimeFolderFromTheEnvironmentOthersMayWriteIsNotUsed()
    {
        const QString temporary = CaseFolder();
        qputenv("TMPDIR", QFile::encodeName(temporary));
        const QString open = temporary + QStringLiteral("/xdg");
        QVERIFY(MakeFolder(open, 0777));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(open));
        CheckPrivateEndpoint(open, temporary);
    }

    void endpointFolderOthersMayWriteIsNotUsed()
    {
        const QString temporary = CaseFolder();
        qputenv("TMPDIR", QFile::encodeName(temporary));
        const QString runtime = temporary + QStringLiteral("/xdg");
        QVERIFY(MakeFolder(runtime, 0700));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
        const QString open = runtime + QStringLiteral("/velmora-ostrel");
        QVERIFY(MakeFolder(open, 0777));
        CheckPrivateEndpoint(open, temporary);
    }

    void privateRuntimeFolderIsUsed()
    {
        const QString temporary = CaseFolder();
        qputenv("TMPDIR", QFile::encodeName(temporary));
        const QString runtime = temporary + QStringLiteral("/xdg");
        QVERIFY(MakeFolder(runtime, 0700));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("Tests")));
        QCOMPARE(QFileInfo(Hub()->GetEndpoint()).path(), runtime + QStringLiteral("/velmora-ostrel"));
        QVERIFY(qEnvironmentVariableIsEmpty("VELMORA_PRIVATE_RUNTIME_DIR"));
    }

    void processStartedFromHereLinksInTheOwnFolder()
    {
        const QString temporary = CaseFolder();
        qputenv("TMPDIR", QFile::encodeName(temporary));
        const QString open = temporary + QStringLiteral("/xdg");
        QVERIFY(MakeFolder(open, 0777));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(open));
        CheckPrivateEndpoint(open, temporary);
        QProcess peer;
        peer.setProgram(QStringLiteral(VMWF_HUBPEER));
        peer.start();
        QVERIFY(peer.waitForStarted(10000));
        Application* application = Hub()->GetApplication(peer.processId());
        QCOMPARE(application->Connect(10000), int(Application::Linked));
        QVERIFY(ApplicationManager::EndpointFor(peer.processId())
                    .startsWith(QFileInfo(Hub()->GetEndpoint()).path()));
        ApplicationMessage quit(QStringLiteral("QuitMsg"), {});
        QVERIFY(application->Send(&quit));
        QTRY_COMPARE_WITH_TIMEOUT(peer.state(), QProcess::NotRunning, 10000);
        QCOMPARE(peer.exitCode(), 0);
        QVERIFY(QDir(open).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_EndpointFolder)
#include "tst_endpointfolder.moc"
