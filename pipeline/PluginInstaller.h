#pragma once

#include "pipeline/MYPluginInstaller.h"
#include "pipeline/UserWorkflows.h"

#include <optional>

namespace quirepad {

class WorkflowLibrary;

// Installs a plugin package (".qpdplugin", into the user's plugin folder)
// or a filter package (".qpdfilter", into the filter folder), then refreshes
// the workflow lists.
class PluginInstaller final : public MYPluginInstaller
{
public:
    explicit PluginInstaller(WorkflowLibrary* library = nullptr);

    // The kind a package path stands for, by its extension.
    static std::optional<WorkflowKind> kindOf(const QString& packagePath);
    static bool isPackage(const QString& path) { return kindOf(path).has_value(); }

    QStringList pluginFileTypes() const override;
    Result installPluginFile(const QString& path) override;
    Result install(const QString& packagePath) { return installPluginFile(packagePath); }

protected:
    void finishedInstalling() override;

private:
    WorkflowLibrary* m_library = nullptr;
};

} // namespace quirepad
