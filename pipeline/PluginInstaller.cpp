#include "pipeline/PluginInstaller.h"

#include "pipeline/WorkflowLibrary.h"

namespace quirepad {

PluginInstaller::PluginInstaller(WorkflowLibrary* library)
    : m_library(library)
{
}

std::optional<WorkflowKind> PluginInstaller::kindOf(const QString& packagePath)
{
    if (packagePath.endsWith(QLatin1String(".qpdplugin")))
        return WorkflowKind::Plugin;
    if (packagePath.endsWith(QLatin1String(".qpdfilter")))
        return WorkflowKind::Filter;
    return std::nullopt;
}

QStringList PluginInstaller::pluginFileTypes() const
{
    return {QStringLiteral("qpdplugin"), QStringLiteral("qpdfilter")};
}

MYPluginInstaller::Result PluginInstaller::installPluginFile(const QString& path)
{
    // The install folder follows the package's kind.
    if (const std::optional<WorkflowKind> kind = kindOf(path))
        setPluginDirectory(UserWorkflows(*kind).folder());
    return MYPluginInstaller::installPluginFile(path);
}

void PluginInstaller::finishedInstalling()
{
    if (m_library)
        m_library->refreshPluginList();
}

} // namespace quirepad
