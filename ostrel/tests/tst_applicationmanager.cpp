// SPDX-License-Identifier: MIT
#include <OstrelAdapter/ApplicationManager.h>

#include <QtTest>

using Velmora::OstrelAdapter::ApplicationManager;

class tst_ApplicationManager : public QObject
{
    Q_OBJECT
private slots:
    void noInstanceBeforeInitialize() { QVERIFY(!ApplicationManager::GetInstance()); }

    void secondInitializeKeepsFirstInstance()
    {
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("First")));
        ApplicationManager* first = ApplicationManager::GetInstance();
        QVERIFY(first);
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("Second")));
        QCOMPARE(ApplicationManager::GetInstance(), first);
        QCOMPARE(first->GetApplicationName(), QStringLiteral("First"));
        ApplicationManager::Uninitialize();
        QVERIFY(!ApplicationManager::GetInstance());
    }

    void localeIsKept()
    {
        ApplicationManager::Initialize(QStringLiteral("App"));
        ApplicationManager::GetInstance()->SetCurrentLocale(QStringLiteral("fr-FR"));
        QCOMPARE(ApplicationManager::GetInstance()->GetCurrentLocale(), QStringLiteral("fr-FR"));
        ApplicationManager::Uninitialize();
    }

    void uninitializeWithoutInstanceIsHarmless()
    {
        ApplicationManager::Uninitialize();
        QVERIFY(!ApplicationManager::GetInstance());
    }
};

QTEST_GUILESS_MAIN(tst_ApplicationManager)
#include "tst_applicationmanager.moc"
