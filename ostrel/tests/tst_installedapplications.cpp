// SPDX-License-Identifier: MIT
// Installed applications from manifests: where they are read, what is skipped, how ids and
// versions match, and how changes on disk are noticed.

#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/OstrelAdapterUtility.h>

#include "HubTestSupport.h"

#include <QtTest>

using namespace Velmora::OstrelAdapter;
using namespace HubTest;

namespace {

QStringList InfoIds(const QList<ApplicationInfo>& infos)
{
    QStringList ids;
    for (const ApplicationInfo& info : infos)
        ids << QString::number(info.GetInfoId());
    return ids;
}

} // namespace

class tst_InstalledApplications : public QObject
{
    Q_OBJECT
private:
    Environment m_env;
    ApplicationManager* Hub() { return ApplicationManager::GetInstance(); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(WriteManifest(
            m_env.ExtraFolder() + QStringLiteral("/alpha.xml"),
            Manifest(QStringLiteral("Id_Alpha"), QStringLiteral("2016.1"), QStringLiteral("/bin/true"), 11)));
        // Other versions of the same id are installed beside it, in folder order; the same id and
        // version met again further down the folder list is a duplicate and loses.
        QVERIFY(WriteManifest(
            m_env.DataHomeFolder() + QStringLiteral("/alpha.xml"),
            Manifest(QStringLiteral("id_alpha"), QStringLiteral("2016.1"), QStringLiteral("/bin/true"), 13)));
        QVERIFY(WriteManifest(
            m_env.DataDirsFolder() + QStringLiteral("/alpha.xml"),
            Manifest(QStringLiteral("ID_ALPHA"), QStringLiteral("2017.0"), QStringLiteral("/bin/true"), 12)));
        QVERIFY(WriteManifest(
            m_env.DataDirsFolder() + QStringLiteral("/alpha2.xml"),
            Manifest(QStringLiteral("Id_Alpha"), QStringLiteral("2016.2"), QStringLiteral("/bin/true"), 14)));
        QVERIFY(WriteManifest(
            m_env.DataDirsFolder() + QStringLiteral("/beta.xml"),
            Manifest(QStringLiteral("Id_Beta"), QStringLiteral("2017.0.5"), QStringLiteral("bin/beta"), 21)));
        QVERIFY(WriteManifest(
            m_env.DataHomeFolder() + QStringLiteral("/gamma.xml"),
            Manifest(QStringLiteral("Id_Gamma"), QStringLiteral("2015"), QStringLiteral("/bin/true"))));
        QVERIFY(
            WriteManifest(m_env.DataDirsFolder() + QStringLiteral("/garbage.xml"), "this is no manifest"));
        QVERIFY(WriteManifest(m_env.DataDirsFolder() + QStringLiteral("/noid.xml"),
                              "<Application Name=\"x\" Executable=\"/bin/true\"/>"));
        QVERIFY(WriteManifest(m_env.DataDirsFolder() + QStringLiteral("/noexe.xml"),
                              "<Application Id=\"Id_NoExe\"/>"));
        QVERIFY(WriteManifest(m_env.DataDirsFolder() + QStringLiteral("/empty.xml"), QByteArray()));
        QVERIFY(WriteManifest(
            m_env.DataDirsFolder() + QStringLiteral("/ignored.txt"),
            Manifest(QStringLiteral("Id_Text"), QStringLiteral("1"), QStringLiteral("/bin/true"))));
    }
    void init() { QVERIFY(ApplicationManager::Initialize(QStringLiteral("Tests"))); }
    void cleanup() { ApplicationManager::Uninitialize(); }

    void foldersComeInOrder()
    {
        const QStringList folders = ApplicationManager::ManifestFolders();
        QCOMPARE(folders.value(0), QDir::cleanPath(m_env.ExtraFolder()));
        QVERIFY(folders.contains(QDir::cleanPath(m_env.DataHomeFolder())));
        QVERIFY(folders.contains(QDir::cleanPath(m_env.DataDirsFolder())));
    }

    void badManifestsAreSkipped()
    {
        QStringList ids;
        for (const ApplicationInfo& info : Hub()->GetAllInstalledApplications())
            ids << info.GetId().toLower();
        ids.removeDuplicates();
        ids.sort();
        QCOMPARE(ids, (QStringList{QStringLiteral("id_alpha"), QStringLiteral("id_beta"),
                                   QStringLiteral("id_gamma")}));
    }

    void everyVersionOfAnIdIsInstalledInFolderOrder()
    {
        const QList<ApplicationInfo> alpha =
            Hub()->GetInstalledApplications(QStringLiteral("Id_Alpha"), QString());
        QCOMPARE(InfoIds(alpha),
                 (QStringList{QStringLiteral("11"), QStringLiteral("12"), QStringLiteral("14")}));
        QStringList versions;
        for (const ApplicationInfo& info : alpha)
            versions << info.GetVersion();
        QCOMPARE(versions,
                 (QStringList{QStringLiteral("2016.1"), QStringLiteral("2017.0"), QStringLiteral("2016.2")}));
        QCOMPARE(alpha.first().GetName(), QStringLiteral("Id_Alpha app"));
    }

    void exactDuplicateKeepsTheFirst()
    {
        // Same id ignoring case and same version: the manifest of the first folder stands.
        const QList<ApplicationInfo> same =
            Hub()->GetInstalledApplications(QStringLiteral("ID_ALPHA"), QStringLiteral("2016.1"));
        QCOMPARE(InfoIds(same), QStringList{QStringLiteral("11")});
        QCOMPARE(same.first().GetId(), QStringLiteral("Id_Alpha"));
        QVERIFY(!InfoIds(Hub()->GetAllInstalledApplications()).contains(QStringLiteral("13")));
    }

    void versionFilterPicksEachVersion_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QStringList>("infoIds");
        QTest::newRow("any") << QString()
                             << QStringList{QStringLiteral("11"), QStringLiteral("12"), QStringLiteral("14")};
        QTest::newRow("year with two")
            << QStringLiteral("2016") << QStringList{QStringLiteral("11"), QStringLiteral("14")};
        QTest::newRow("first of the year") << QStringLiteral("2016.1") << QStringList{QStringLiteral("11")};
        QTest::newRow("second of the year") << QStringLiteral("2016.2") << QStringList{QStringLiteral("14")};
        QTest::newRow("other year") << QStringLiteral("2017") << QStringList{QStringLiteral("12")};
        QTest::newRow("other year exactly") << QStringLiteral("2017.0") << QStringList{QStringLiteral("12")};
        QTest::newRow("none") << QStringLiteral("2018") << QStringList();
    }
    void versionFilterPicksEachVersion()
    {
        QFETCH(QString, version);
        QFETCH(QStringList, infoIds);
        QCOMPARE(InfoIds(Hub()->GetInstalledApplications(QStringLiteral("id_ALPHA"), version)), infoIds);
    }

    void idsIgnoreCase()
    {
        QCOMPARE(InfoIds(Hub()->GetInstalledApplications(QStringLiteral("id_alpha"), QString())),
                 (QStringList{QStringLiteral("11"), QStringLiteral("12"), QStringLiteral("14")}));
        QCOMPARE(InfoIds(Hub()->GetInstalledApplications(QStringLiteral("ID_BETA"), QString())),
                 QStringList{QStringLiteral("21")});
        QVERIFY(Hub()->GetInstalledApplications(QString(), QString()).isEmpty());
        QVERIFY(Hub()->GetInstalledApplications(QStringLiteral("Id_Unknown"), QString()).isEmpty());
    }

    void versionsFilterTheApplications()
    {
        QCOMPARE(InfoIds(Hub()->GetInstalledApplications(QStringLiteral("Id_Alpha"), QStringLiteral("2016"))),
                 (QStringList{QStringLiteral("11"), QStringLiteral("14")}));
        QVERIFY(
            Hub()->GetInstalledApplications(QStringLiteral("Id_Alpha"), QStringLiteral("2019")).isEmpty());
        QCOMPARE(
            InfoIds(Hub()->GetInstalledApplications(QStringLiteral("Id_Beta"), QStringLiteral("2017.0"))),
            QStringList{QStringLiteral("21")});
        QVERIFY(
            Hub()->GetInstalledApplications(QStringLiteral("Id_Gamma"), QStringLiteral("2015.1")).isEmpty());
    }

    void missingInfoIdIsZeroAndRelativeProgramIsBesideTheManifest()
    {
        QCOMPARE(Hub()->GetInstalledApplications(QStringLiteral("Id_Gamma"), QString()).first().GetInfoId(),
                 0);
        QCOMPARE(
            Hub()->GetInstalledApplications(QStringLiteral("Id_Beta"), QString()).first().GetExecutable(),
            QDir::cleanPath(m_env.DataDirsFolder() + QStringLiteral("/bin/beta")));
    }

    void numericVersion()
    {
        const ApplicationInfo beta =
            Hub()->GetInstalledApplications(QStringLiteral("Id_Beta"), QString()).first();
        QCOMPARE(beta.GetNumericVersion(), (QList<unsigned int>{2017, 0, 5}));
        QCOMPARE(ApplicationInfo(QStringLiteral("x"), QString(), QStringLiteral("2016.beta.3"),
                                 QStringLiteral("/x"), 0)
                     .GetNumericVersion(),
                 (QList<unsigned int>{2016, 0, 3}));
        QVERIFY(ApplicationInfo().GetNumericVersion().isEmpty());
        QVERIFY(!ApplicationInfo().IsValid());
    }

    void versionCompare_data()
    {
        QTest::addColumn<QString>("wanted");
        QTest::addColumn<QString>("actual");
        QTest::addColumn<bool>("matches");
        QTest::newRow("shorter wanted") << QStringLiteral("2016") << QStringLiteral("2016.1") << true;
        QTest::newRow("longer wanted") << QStringLiteral("2016.1") << QStringLiteral("2016") << false;
        QTest::newRow("equal") << QStringLiteral("2016.1") << QStringLiteral("2016.1") << true;
        QTest::newRow("other year") << QStringLiteral("2016") << QStringLiteral("2017.0") << false;
        QTest::newRow("empty wanted") << QString() << QStringLiteral("2017.0") << true;
        QTest::newRow("both empty") << QString() << QString() << true;
        QTest::newRow("empty actual") << QStringLiteral("2016") << QString() << false;
        QTest::newRow("leading zero") << QStringLiteral("2016.01") << QStringLiteral("2016.1") << true;
        QTest::newRow("text equal") << QStringLiteral("2016.beta") << QStringLiteral("2016.BETA.2") << true;
        QTest::newRow("text differs") << QStringLiteral("2016.beta") << QStringLiteral("2016.1") << false;
        QTest::newRow("three parts") << QStringLiteral("2016.1.2") << QStringLiteral("2016.1.2.9") << true;
        QTest::newRow("third part differs")
            << QStringLiteral("2016.1.2") << QStringLiteral("2016.1.3") << false;
    }
    void versionCompare()
    {
        QFETCH(QString, wanted);
        QFETCH(QString, actual);
        QFETCH(bool, matches);
        QCOMPARE(OstrelAdapterUtility::VersionCompare(wanted, actual), matches);
    }

    void folderAddedWhileRunningIsSeen()
    {
        QVERIFY(Hub()->GetInstalledApplications(QStringLiteral("Id_Late"), QString()).isEmpty());
        const QString late = m_env.Path(QStringLiteral("late"));
        qputenv("VELMORA_APPLICATIONS_PATH",
                QFile::encodeName(m_env.ExtraFolder() + QDir::listSeparator() + late));
        QVERIFY(Hub()->GetInstalledApplications(QStringLiteral("Id_Late"), QString()).isEmpty());
        QVERIFY(WriteManifest(
            late + QStringLiteral("/late.xml"),
            Manifest(QStringLiteral("Id_Late"), QStringLiteral("1.0"), QStringLiteral("/bin/true"), 77)));
        QTRY_COMPARE_WITH_TIMEOUT(
            InfoIds(Hub()->GetInstalledApplications(QStringLiteral("Id_Late"), QString())),
            QStringList{QStringLiteral("77")}, 5000);
        QVERIFY(QFile::remove(late + QStringLiteral("/late.xml")));
        QTRY_VERIFY_WITH_TIMEOUT(
            Hub()->GetInstalledApplications(QStringLiteral("Id_Late"), QString()).isEmpty(), 5000);
        qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(m_env.ExtraFolder()));
    }

    void manifestReplacedWhileRunningIsReadAgain()
    {
        const QString path = m_env.DataHomeFolder() + QStringLiteral("/gamma.xml");
        QVERIFY(WriteManifest(path, Manifest(QStringLiteral("Id_Gamma"), QStringLiteral("2018.2"),
                                             QStringLiteral("/bin/true"), 33)));
        QTRY_COMPARE_WITH_TIMEOUT(
            InfoIds(Hub()->GetInstalledApplications(QStringLiteral("Id_Gamma"), QStringLiteral("2018"))),
            QStringList{QStringLiteral("33")}, 5000);
        QVERIFY(WriteManifest(
            path, Manifest(QStringLiteral("Id_Gamma"), QStringLiteral("2015"), QStringLiteral("/bin/true"))));
    }

    void startupErrorMessagesNameTheApplication()
    {
        QVERIFY(OstrelAdapterUtility::FormatApplicationStarupErrorMessage(QStringLiteral("Host"),
                                                                          Application::NoError)
                    .isEmpty());
        for (Application::StartupError error :
             {Application::ApplicationNotFound, Application::ExecutableMissing, Application::CouldNotStart})
        {
            const QString text = OstrelAdapterUtility::FormatApplicationStarupErrorMessage(
                QStringLiteral("VmWorkflowHost"), error);
            QVERIFY(text.startsWith(QStringLiteral("VmWorkflowHost ")));
            QVERIFY(text.endsWith(QLatin1Char('.')));
        }
        QVERIFY(OstrelAdapterUtility::FormatApplicationStarupErrorMessage(QStringLiteral("A"),
                                                                          Application::ApplicationNotFound) !=
                OstrelAdapterUtility::FormatApplicationStarupErrorMessage(QStringLiteral("A"),
                                                                          Application::ExecutableMissing));
    }
};

QTEST_GUILESS_MAIN(tst_InstalledApplications)
#include "tst_installedapplications.moc"
