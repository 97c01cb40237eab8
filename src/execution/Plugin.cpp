#include "execution/Plugin.h"

namespace Velmora::WorkflowCore {

Plugin::Plugin(const QString& path) : m_path(path) {}

Plugin::~Plugin() = default;

bool Plugin::Load()
{
    m_state = Failed;
    return false;
}

WorkflowExecutor* Plugin::ExecuteHandler()
{
    return m_executeHandler;
}

WorkflowEditorHandler* Plugin::EditorHandler()
{
    return m_editorHandler;
}

WorkflowLaunchHandler* Plugin::LaunchHandler()
{
    return m_launchHandler;
}

void Plugin::Unload()
{
    if (m_library && m_library->isLoaded() && m_library->unload())
        m_library.reset();
}

} // namespace Velmora::WorkflowCore
