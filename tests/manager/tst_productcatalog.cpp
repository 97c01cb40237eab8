// SPDX-License-Identifier: MIT
// The product catalogue: where it is found, how it is read, and the three exported lookups,
// against real hub manifests in a private data folder.

#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/ProductCatalog.h"
#include "manager/WorkflowManagerImp.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"
#include "util/FacadeAccess.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <vector>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

const QByteArray kCatalog = R"(<?xml version="1.0"?>
<Products>
    <Product Id="ProdA" Name="Product A" OstrelName="Id_AppA"/>
    <Product Id="prodB" Name="Product B" OstrelName="Id_AppB"/>
    <Something Id="X" Name="first X" OstrelName="Id_X1"/>
    <Product Id="x" Name="second X" OstrelName="Id_X2"/>
    <Product Name="no id" OstrelName="Id_NoId"/>
</Products>
)";

QByteArray Manifest(const char* id, const char* version, const char* infoId)
{
    return QByteArray("<?xml version=\"1.0\"?>\n<Application Id=\"") + id + "\" Name=\"" + id +
           "\" Version=\"" + version + "\" Executable=\"/bin/true\" InfoId=\"" + infoId + "\"/>\n";
}

QString NameList(const QString& ids)
{
    return ReadText([&](WideChar* b, int s) {
        return WorkflowManager::GetInstance()->ProductIdsToNameList(Wide(ids), b, s);
    });
}

QList<long long> Installed(const QString& ids)
{
    WorkflowManager* manager = WorkflowManager::GetInstance();
    const int count = manager->GetInstalledProducts(Wide(ids), nullptr, 0);
    std::vector<long long> buffer(size_t(count) + 1, -7);
    const int written = manager->GetInstalledProducts(Wide(ids), buffer.data(), count);
    return QList<long long>(buffer.begin(), buffer.begin() + written);
}

} // namespace

class tst_ProductCatalog : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    QString CatalogFolder() const { return m_env.Root() + QStringLiteral("/products"); }
    QString SettingsFile() const
    {
        return m_env.ConfigDirs() + QStringLiteral("/Velmora/Workflow/2015.0.conf");
    }
    QString ManifestFolder() const { return m_env.DataDirs() + QStringLiteral("/Velmora/Applications"); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(!QFile::exists(QCoreApplication::applicationDirPath() + QStringLiteral("/Products.xml")));
        QVERIFY(WriteFile(CatalogFolder() + QStringLiteral("/Products.xml"), kCatalog));
        QVERIFY(WriteFile(SettingsFile(), "[General]\nProductsXmlFileSearchPath=" +
                                              QFile::encodeName(CatalogFolder()) + "\n"));
        QVERIFY(
            WriteFile(ManifestFolder() + QStringLiteral("/a2016.xml"), Manifest("Id_AppA", "2016.1", "101")));
        // An application version is installed once: a second manifest with the same id and version
        // is ignored.
        QVERIFY(
            WriteFile(ManifestFolder() + QStringLiteral("/a2017.xml"), Manifest("ID_APPA", "2016.1", "102")));
        QVERIFY(WriteFile(ManifestFolder() + QStringLiteral("/b.xml"), Manifest("Id_AppB", "2016.0", "201")));
    }
    void init() { QVERIFY(WorkflowManager::Initialize()); }
    void cleanup() { QVERIFY(WorkflowManager::Uninitialize()); }

    void catalogueComesFromTheMachineSettingsFolder()
    {
        QCOMPARE(ProductCatalog::LocateCatalogFile(), CatalogFolder() + QStringLiteral("/Products.xml"));
        QCOMPARE(NameList(QStringLiteral("prodA")), QStringLiteral("Product A"));
    }

    // Every test program runs from one folder, and the tests run side by side: a catalogue put beside
    // this program would be read by whichever test starts its manager meanwhile. The catalogue goes
    // beside a copy of a small program in a folder of this test's own instead.
    void catalogueBesideTheApplicationComesFirst()
    {
        QTemporaryDir folder;
        QVERIFY(folder.isValid());
        const QString program = folder.filePath(QStringLiteral("productcatalog_child"));
        QVERIFY(QFile::copy(QCoreApplication::applicationDirPath() + QStringLiteral("/productcatalog_child"),
                            program));
        const auto run = [&program]() -> QStringList {
            QProcess process;
            process.start(program, {QStringLiteral("prodA")});
            if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit ||
                process.exitCode() != 0)
                return {QStringLiteral("failed: ") + QString::fromLocal8Bit(process.readAllStandardError())};
            return QString::fromUtf8(process.readAllStandardOutput())
                .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        };
        // Nothing beside the copy: it reads the catalogue that the machine settings name.
        QCOMPARE(run(), (QStringList{CatalogFolder() + QStringLiteral("/Products.xml"),
                                     QStringLiteral("Product A")}));
        QVERIFY(WriteFile(folder.filePath(QStringLiteral("Products.xml")),
                          "<P><Product Id=\"prodA\" Name=\"Beside\"/></P>"));
        const QString beside = QFileInfo(folder.path()).canonicalFilePath() + QStringLiteral("/Products.xml");
        QCOMPARE(run(), (QStringList{beside, QStringLiteral("Beside")}));
    }

    void catalogueIsReadOnceWhenTheManagerIsMade()
    {
        QVERIFY(WriteFile(CatalogFolder() + QStringLiteral("/Products.xml"),
                          "<P><Product Id=\"prodA\" Name=\"Changed\"/></P>"));
        const QString whileRunning = NameList(QStringLiteral("prodA"));
        QVERIFY(WriteFile(CatalogFolder() + QStringLiteral("/Products.xml"), kCatalog));
        QCOMPARE(whileRunning, QStringLiteral("Product A"));
    }

    void missingOrBrokenCatalogueGivesEmptyNames_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("not xml") << QByteArray("garbage");
        QTest::newRow("truncated") << kCatalog.left(80);
        QTest::newRow("empty") << QByteArray();
    }
    void missingOrBrokenCatalogueGivesEmptyNames()
    {
        QFETCH(QByteArray, content);
        QVERIFY(WorkflowManager::Uninitialize());
        QVERIFY(WriteFile(CatalogFolder() + QStringLiteral("/Products.xml"), content));
        QVERIFY(WorkflowManager::Initialize());
        const QString names = NameList(QStringLiteral("prodA,prodB"));
        QCOMPARE(ImpOf(WorkflowManager::GetInstance())->Products().Count(), 0);
        QVERIFY(WriteFile(CatalogFolder() + QStringLiteral("/Products.xml"), kCatalog));
        QCOMPARE(names, QStringLiteral(","));
    }

    void idsAreLowerCasedAndLaterElementsWin()
    {
        const ProductCatalog& products = ImpOf(WorkflowManager::GetInstance())->Products();
        QCOMPARE(products.Lookup(QStringLiteral("X")).Name, QStringLiteral("second X"));
        QCOMPARE(products.Lookup(QStringLiteral("x")).OstrelName, QStringLiteral("Id_X2"));
        QCOMPARE(products.Lookup(QStringLiteral("PRODA")).Id, QStringLiteral("proda"));
        // An element without an id is stored under the empty id, which an empty piece then finds.
        QCOMPARE(products.Lookup(QString()).Name, QStringLiteral("no id"));
    }

    void lookupOfUnknownIdKeepsOnlyTheVersion()
    {
        const ProductRecord record =
            ImpOf(WorkflowManager::GetInstance())->Products().Lookup(QStringLiteral("nope:2016:extra"));
        QVERIFY(record.Id.isEmpty());
        QVERIFY(record.Name.isEmpty());
        QVERIFY(record.OstrelName.isEmpty());
        QCOMPARE(record.Version, QStringLiteral("2016"));
    }

    void emptyMiddlePieceIsDroppedUnknownIdKeepsItsPlace()
    {
        QCOMPARE(NameList(QStringLiteral("prodA,,prodUnknown")), QStringLiteral("Product A,"));
        QCOMPARE(NameList(QStringLiteral("prodUnknown,prodB")), QStringLiteral(",Product B"));
    }

    void caseOfCodeDoesNotMatterVersionIsPassedAsWritten()
    {
        WorkflowManager* manager = WorkflowManager::GetInstance();
        for (const QString& id : {QStringLiteral("ProdA:2016"), QStringLiteral("proda:2016")})
        {
            std::vector<WideChar> names(64, 0);
            std::vector<WideChar> versions(64, 0);
            manager->ProductIdsToOstrelNameList(Wide(id), names.data(), 64, versions.data(), 64);
            QCOMPARE(QString::fromUtf16(reinterpret_cast<const char16_t*>(names.data())),
                     QStringLiteral("Id_AppA"));
            QCOMPARE(QString::fromUtf16(reinterpret_cast<const char16_t*>(versions.data())),
                     QStringLiteral("2016"));
            QCOMPARE(Installed(id), (QList<long long>{101}));
        }
    }

    void hubNamesAndVersionsOfAList()
    {
        std::vector<WideChar> names(64, 0x7777);
        std::vector<WideChar> versions(64, 0x7777);
        WorkflowManager::GetInstance()->ProductIdsToOstrelNameList(
            Wide(QStringLiteral("prodA:2016,,prodB,zzz:1")), names.data(), 64, versions.data(), 64);
        QCOMPARE(QString::fromUtf16(reinterpret_cast<const char16_t*>(names.data())),
                 QStringLiteral("Id_AppA,Id_AppB,"));
        QCOMPARE(QString::fromUtf16(reinterpret_cast<const char16_t*>(versions.data())),
                 QStringLiteral("2016,,1"));
    }

    void hubNameBuffersFollowTheCopyRule()
    {
        std::vector<WideChar> names(8, 0x7777);
        std::vector<WideChar> versions(8, 0x7777);
        // A null names buffer is skipped; the versions still arrive, cut to size - 1.
        WorkflowManager::GetInstance()->ProductIdsToOstrelNameList(Wide(QStringLiteral("prodA:2016.1.7")),
                                                                   nullptr, 8, versions.data(), 5);
        QCOMPARE(QString::fromUtf16(reinterpret_cast<const char16_t*>(versions.data())),
                 QStringLiteral("2016"));
        QCOMPARE(versions[5], WideChar(0x7777));
        WorkflowManager::GetInstance()->ProductIdsToOstrelNameList(Wide(QStringLiteral("prodA")),
                                                                   names.data(), 0, versions.data(), -1);
        QCOMPARE(names[0], WideChar(0x7777));
    }

    void shortBufferGetsSizeMinusOneCharacters()
    {
        WorkflowManager* manager = WorkflowManager::GetInstance();
        // "Product A" is 9 characters.
        std::vector<WideChar> buffer(8, 0x7777);
        QCOMPARE(manager->ProductIdsToNameList(Wide(QStringLiteral("prodA")), buffer.data(), 5), 4);
        QCOMPARE(QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer.data())),
                 QStringLiteral("Prod"));
        QCOMPARE(buffer[5], WideChar(0x7777));
    }

    void nullBufferGivesTheFullLength()
    {
        QCOMPARE(WorkflowManager::GetInstance()->ProductIdsToNameList(Wide(QStringLiteral("prodA,prodB")),
                                                                      nullptr, 3),
                 19);
        std::vector<WideChar> buffer(4, 0x7777);
        QCOMPARE(WorkflowManager::GetInstance()->ProductIdsToNameList(Wide(QStringLiteral("prodA")),
                                                                      buffer.data(), 0),
                 0);
        QCOMPARE(buffer[0], WideChar(0x7777));
    }

    void installedProductsInHubOrderWithEmptyPiecesAsked()
    {
        // The empty piece finds the record without an id, whose hub name no manifest carries.
        QCOMPARE(Installed(QStringLiteral("prodA,,prodB")), (QList<long long>{101, 201}));
        QCOMPARE(Installed(QStringLiteral("prodB,prodA:2016")), (QList<long long>{201, 101}));
        QCOMPARE(Installed(QStringLiteral("prodA:2017")), QList<long long>());
        QCOMPARE(Installed(QStringLiteral("prodB:2017")), QList<long long>());
        QCOMPARE(Installed(QStringLiteral("unknown")), QList<long long>());
    }

    void installedProductsArrayBounds()
    {
        WorkflowManager* manager = WorkflowManager::GetInstance();
        QCOMPARE(manager->GetInstalledProducts(Wide(QStringLiteral("prodA,prodB")), nullptr, 0), 2);
        std::vector<long long> ids(4, -7);
        QCOMPARE(manager->GetInstalledProducts(Wide(QStringLiteral("prodA,prodB")), ids.data(), 1), 1);
        QCOMPARE(ids[0], 101LL);
        QCOMPARE(ids[1], -7LL);
        QCOMPARE(manager->GetInstalledProducts(Wide(QStringLiteral("prodA,prodB")), ids.data(), 4), 2);
        QCOMPARE(ids[2], -7LL);
        QCOMPARE(manager->GetInstalledProducts(Wide(QStringLiteral("prodA,prodB")), ids.data(), 0), 0);
        QCOMPARE(manager->GetInstalledProducts(Wide(QStringLiteral("prodA,prodB")), ids.data(), -3), 0);
    }

    void manifestAddedWhileRunningIsSeen()
    {
        QCOMPARE(Installed(QStringLiteral("x:2017")), QList<long long>());
        QVERIFY(WriteFile(ManifestFolder() + QStringLiteral("/x.xml"), Manifest("Id_X2", "2017.2", "202")));
        // The hub looks at its manifest folders again within a moment, not on every question.
        QTRY_COMPARE_WITH_TIMEOUT(Installed(QStringLiteral("x:2017")), (QList<long long>{202}), 5000);
        QFile::remove(ManifestFolder() + QStringLiteral("/x.xml"));
        QTRY_COMPARE_WITH_TIMEOUT(Installed(QStringLiteral("x:2017")), QList<long long>(), 5000);
    }
};

QTEST_GUILESS_MAIN(tst_ProductCatalog)
#include "tst_productcatalog.moc"
