// SPDX-License-Identifier: MIT
#include "execution/Plugin.h"

#include <QFileInfo>

#include <vector>

namespace Velmora::WorkflowCore {

namespace {

// The C-linkage entry point every plug-in library exports.
constexpr char kEntryPoint[] = "GetWorkflowPlugin";

// Libraries that refused to unload stay mapped for the rest of the process, and so do their
// library objects: code in them may still be on a caller's stack or behind a handler pointer.
std::vector<std::unique_ptr<QLibrary>>& KeptLibraries()
{
    static std::vector<std::unique_ptr<QLibrary>> kept;
    return kept;
}

} // namespace

Plugin::Plugin(const QString& path) : m_path(path) {}

Plugin::~Plugin() = default;

bool Plugin::Load()
{
    if (m_library && m_library->isLoaded())
        return true;
    // Opening a fifo or a device would block or read something that is no library at all.
    if (!QFileInfo(m_path).isFile())
    {
        m_state = Failed;
        return false;
    }
    m_library = std::make_unique<QLibrary>(m_path);
    if (!m_library->load())
    {
        m_state = Failed;
        return false;
    }
    const auto entryPoint = reinterpret_cast<GetWorkflowPluginFunction>(m_library->resolve(kEntryPoint));
    if (!entryPoint)
    {
        m_library->unload();
        m_library.reset();
        m_state = Failed;
        return false;
    }
    m_state = Loaded;
    m_plugin = entryPoint();
    return m_plugin != nullptr;
}

bool Plugin::EnsurePlugin()
{
    if (m_state == NeverTried)
        Load();
    return m_plugin != nullptr;
}

WorkflowExecutor* Plugin::ExecuteHandler()
{
    if (!m_executeHandler && EnsurePlugin())
        m_executeHandler = m_plugin->GetWorkflowExecuteHandler();
    return m_executeHandler;
}

WorkflowEditorHandler* Plugin::EditorHandler()
{
    if (!m_editorHandler && EnsurePlugin())
        m_editorHandler = m_plugin->GetWorkflowEditorHandler();
    return m_editorHandler;
}

WorkflowLaunchHandler* Plugin::LaunchHandler()
{
    if (!m_launchHandler && EnsurePlugin())
        m_launchHandler = m_plugin->GetWorkflowLaunchHandler();
    return m_launchHandler;
}

bool Plugin::IsLibraryLoaded() const
{
    return m_library && m_library->isLoaded();
}

void Plugin::Unload()
{
    if (!m_library || !m_library->isLoaded())
        return;
    if (m_library->unload())
    {
        m_library.reset();
        m_plugin = nullptr;
        m_executeHandler = nullptr;
        m_editorHandler = nullptr;
        m_launchHandler = nullptr;
        return;
    }
    KeptLibraries().push_back(std::move(m_library));
}

} // namespace Velmora::WorkflowCore
