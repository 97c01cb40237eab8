// SPDX-License-Identifier: MIT
// What the exported classes promise by their shape: one pointer each, no virtual functions,
// no copies.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include <QtTest>

#include <type_traits>

using namespace Velmora::WorkflowCore;

template <typename T> constexpr bool IsPlainFacade()
{
    return sizeof(T) == sizeof(void*) && !std::is_polymorphic_v<T> && !std::is_copy_constructible_v<T> &&
           !std::is_copy_assignable_v<T>;
}

class tst_Facades : public QObject
{
    Q_OBJECT
private slots:
    void facadesHoldOnePointerAndCannotBeCopied()
    {
        QVERIFY(IsPlainFacade<Workflow>());
        QVERIFY(IsPlainFacade<WorkflowArguments>());
        QVERIFY(IsPlainFacade<WorkflowIterator>());
        QVERIFY(IsPlainFacade<ExecutingWorkflow>());
        QVERIFY(IsPlainFacade<ExecutingWorkflowIterator>());
        QVERIFY(IsPlainFacade<WorkflowManager>());
    }

    // Only the library makes the facades that wrap its private types; a caller cannot.
    void facadesOfPrivateTypesCannotBeMadeByCallers()
    {
        QVERIFY(!(std::is_constructible_v<WorkflowIterator, WorkflowIteratorImp*>));
        QVERIFY(!(std::is_constructible_v<ExecutingWorkflowIterator, ExecutingWorkflowIteratorImp*>));
        QVERIFY(!(std::is_constructible_v<ExecutingWorkflow, ExecutingWorkflowRecord*>));
        QVERIFY(!(std::is_constructible_v<WorkflowNotificationManager, WorkflowNotificationManagerImp*>));
        QVERIFY(!std::is_default_constructible_v<WorkflowManager>);
        // What every caller may make stays makeable.
        QVERIFY(std::is_default_constructible_v<Workflow>);
        QVERIFY(std::is_default_constructible_v<WorkflowArguments>);
    }

    void interfaceTextIsUtf16() { QCOMPARE(sizeof(WideChar), size_t(2)); }

    void enumeratorsHaveTheirFixedValues()
    {
        QCOMPARE(int(WorkflowImageAutomatic), 0);
        QCOMPARE(int(WorkflowImageTemplate), 1);
        QCOMPARE(int(WorkflowImageModified), 2);
        QCOMPARE(int(ApplicationMenu), 0);
        QCOMPARE(int(WorkflowBrowser), 1);
        QCOMPARE(int(WorkflowEditor), 2);
        QCOMPARE(int(Ribbon), 3);
    }

    void uiStateIsOneByte() { QCOMPARE(sizeof(WorkflowUIState), size_t(1)); }

    void callbackInterfacesAreAbstract()
    {
        QVERIFY(std::is_abstract_v<HostApplicationContext>);
        QVERIFY(std::is_abstract_v<LinkStateListener>);
        QVERIFY(std::has_virtual_destructor_v<HostApplicationContext>);
        QVERIFY(std::has_virtual_destructor_v<LinkStateListener>);
    }

    void notificationSignalsInOrder()
    {
        const QMetaObject& meta = WorkflowNotificationManager::staticMetaObject;
        QStringList signalNames;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        {
            if (meta.method(i).methodType() == QMetaMethod::Signal)
                signalNames << QString::fromLatin1(meta.method(i).name());
        }
        QCOMPARE(signalNames, QStringList({QStringLiteral("WorkflowExecutionBeginning"),
                                           QStringLiteral("WorkflowExecutionFinished")}));
    }
};

QTEST_GUILESS_MAIN(tst_Facades)
#include "tst_facades.moc"
