// SPDX-License-Identifier: MIT
#include "execution/Analytics.h"

#include "platform/Platform.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <Kv7/Kv7Shim.h>

#include <QCoreApplication>
#include <QLibrary>

#include <limits>
#include <new>
#include <vector>

namespace Velmora::WorkflowCore {

namespace {

bool s_gateOpen = false;

// The analytics library, bound on the first waypoint. Its factories are static member functions
// whose mangled names differ between compilers, so the library also exports plain C entry points
// for them, and those are what is resolved here. The attach operations are virtual and need no
// symbol. The library stays loaded for the life of the process.
struct Kv7Binding
{
    bool tried = false;
    bool bound = false;
    Kv7CreateWaypointFunction createWaypoint = nullptr;
    Kv7CreateStateFunction createState = nullptr;
    Kv7CreateTextAttributeFunction createTextAttribute = nullptr;
    Kv7CreateBoolAttributeFunction createBoolAttribute = nullptr;
    Kv7WaypointReachedFunction waypointReached = nullptr;
};

Kv7Binding s_kv7;

// The analytics library ships beside this library, or else beside the application.
QStringList Kv7Candidates()
{
    QStringList folders;
    const QString own = Platform::ModuleFolder(reinterpret_cast<const void*>(&ReportWorkflowExecution));
    if (!own.isEmpty())
        folders.append(own);
    const QString application =
        QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : Platform::ExecutableFolder();
    if (!application.isEmpty() && !folders.contains(application))
        folders.append(application);
    QStringList candidates;
    for (const QString& folder : std::as_const(folders))
        candidates.append(folder + QStringLiteral("/Kv7"));
    return candidates;
}

const Kv7Binding* BindKv7()
{
    if (s_kv7.tried)
        return s_kv7.bound ? &s_kv7 : nullptr;
    s_kv7.tried = true;
    for (const QString& candidate : Kv7Candidates())
    {
        // Versioned where the platform versions its libraries ("libKv7.so.7"), plain elsewhere.
        QLibrary library(candidate, 7);
        if (!library.load())
            continue;
        s_kv7.createWaypoint =
            reinterpret_cast<Kv7CreateWaypointFunction>(library.resolve("Kv7CreateWaypoint"));
        s_kv7.createState = reinterpret_cast<Kv7CreateStateFunction>(library.resolve("Kv7CreateState"));
        s_kv7.createTextAttribute =
            reinterpret_cast<Kv7CreateTextAttributeFunction>(library.resolve("Kv7CreateTextAttribute"));
        s_kv7.createBoolAttribute =
            reinterpret_cast<Kv7CreateBoolAttributeFunction>(library.resolve("Kv7CreateBoolAttribute"));
        s_kv7.waypointReached =
            reinterpret_cast<Kv7WaypointReachedFunction>(library.resolve("Kv7WaypointReached"));
        s_kv7.bound = s_kv7.createWaypoint && s_kv7.createState && s_kv7.createTextAttribute &&
                      s_kv7.createBoolAttribute && s_kv7.waypointReached;
        if (s_kv7.bound)
            return &s_kv7;
        library.unload();
    }
    return nullptr;
}

// One attribute of a report, in the order attached.
struct Attribute
{
    QString name;
    QString text;
    bool isBool = false;
    bool value = false;
};

Attribute Text(const QString& name, const QString& text)
{
    return Attribute{name, text, false, false};
}

Attribute Bool(const QString& name, bool value)
{
    return Attribute{name, QString(), true, value};
}

// A zero-terminated copy of text for the analytics library; empty when the memory cannot be had.
struct WideBuffer
{
    explicit WideBuffer(const QString& text)
    {
        const std::size_t length = std::size_t(text.size());
        const std::size_t bytes = WideBufferBytes(length);
        if (bytes == std::numeric_limits<std::size_t>::max())
            return;
        units.reset(static_cast<Kv7::WideChar*>(::operator new(bytes, std::nothrow)));
        if (!units)
            return;
        const char16_t* source = reinterpret_cast<const char16_t*>(text.utf16());
        for (std::size_t i = 0; i < length; ++i)
            units.get()[i] = Kv7::WideChar(source[i]);
        units.get()[length] = 0;
    }
    struct Free
    {
        void operator()(Kv7::WideChar* p) const { ::operator delete(p); }
    };
    std::unique_ptr<Kv7::WideChar, Free> units;
};

// The analytics library's classes are only reached through their virtual tables; their type
// information lives in that library alone, so the dynamic-type check of a sanitizing build, which
// would need it at link time, is left out here.
#if defined(__GNUC__) || defined(__clang__)
#define VMWF_NO_VPTR_CHECK __attribute__((no_sanitize("vptr")))
#else
#define VMWF_NO_VPTR_CHECK
#endif

VMWF_NO_VPTR_CHECK void SendWaypoint(const QString& waypointName, const QString& stateName,
                                     const std::vector<Attribute>& attributes)
{
    if (!s_gateOpen)
        return;
    const Kv7Binding* kv7 = BindKv7();
    if (!kv7)
        return;
    const WideBuffer waypointText(waypointName);
    const WideBuffer stateText(stateName);
    if (!waypointText.units || !stateText.units)
        return;
    Kv7::TlmWaypoint* waypoint = kv7->createWaypoint(waypointText.units.get());
    Kv7::TlmState* state = kv7->createState(stateText.units.get());
    if (!waypoint || !state)
        return;
    for (const Attribute& attribute : attributes)
    {
        const WideBuffer name(attribute.name);
        if (!name.units)
            continue;
        Kv7::TlmAttribute* created = nullptr;
        if (attribute.isBool)
        {
            created = kv7->createBoolAttribute(name.units.get(), attribute.value);
        }
        else
        {
            const WideBuffer value(attribute.text);
            if (!value.units)
                continue;
            created = kv7->createTextAttribute(name.units.get(), value.units.get());
        }
        state->AddAttribute(created);
    }
    waypoint->AddState(state);
    kv7->waypointReached(waypoint);
}

} // namespace

std::size_t WideBufferBytes(std::size_t length)
{
    constexpr std::size_t kLargest = std::numeric_limits<std::size_t>::max();
    if (length >= kLargest / sizeof(Kv7::WideChar) - 1)
        return kLargest;
    return (length + 1) * sizeof(Kv7::WideChar);
}

QString LaunchPointLabel(int launchPoint)
{
    switch (launchPoint)
    {
    case 0:
        return QStringLiteral("Application Menu");
    case 1:
        return QStringLiteral("Workflow Browser");
    case 2:
        return QStringLiteral("Workflow Editor");
    case 3:
        return QStringLiteral("Ribbon");
    default:
        return QStringLiteral("Unknown");
    }
}

void ReportWorkflowExecution(Workflow* workflow, int launchPoint)
{
    if (!s_gateOpen || !workflow)
        return;
    const WorkflowFields& fields = ImpOf(workflow)->Fields();
    SendWaypoint(
        QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION"),
        QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_STATE"),
        {Text(QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ID"), fields.Id),
         Text(QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_TEMPLATEID"), fields.TemplateId),
         Bool(QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ISTEMPLATE"), fields.IsTemplate),
         Bool(QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ISMODIFIED"), fields.IsModified),
         Text(QStringLiteral("COMMON.KELDO.WORKFLOWEXECUTION_ACCESSPOINT"), LaunchPointLabel(launchPoint))});
}

void ReportWorkflowCreation(const QString& templateId, bool wasModified)
{
    if (!s_gateOpen)
        return;
    SendWaypoint(QStringLiteral("COMMON.KELDO.WORKFLOWCREATION"),
                 QStringLiteral("COMMON.KELDO.WORKFLOWCREATION_STATE"),
                 {Text(QStringLiteral("COMMON.KELDO.WORKFLOWCREATION_TEMPLATEID"), templateId),
                  Bool(QStringLiteral("COMMON.KELDO.WORKFLOWCREATION_ISMODIFIED"), wasModified)});
}

void ReportWorkflowModification(const QString& id, const QString& templateId)
{
    if (!s_gateOpen)
        return;
    SendWaypoint(QStringLiteral("COMMON.KELDO.WORKFLOWMODIFICATION"),
                 QStringLiteral("COMMON.KELDO.WORKFLOWMODIFICATION_STATE"),
                 {Text(QStringLiteral("COMMON.KELDO.WORKFLOWMODIFICATION_ID"), id),
                  Text(QStringLiteral("COMMON.KELDO.WORKFLOWMODIFICATION_TEMPLATEID"), templateId)});
}

namespace AnalyticsTesting {

void SetGateOpen(bool open)
{
    s_gateOpen = open;
}

bool IsBound()
{
    return s_kv7.bound;
}

} // namespace AnalyticsTesting

} // namespace Velmora::WorkflowCore
