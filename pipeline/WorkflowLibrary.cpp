#include "pipeline/WorkflowLibrary.h"

#include "foundation/fileutil.h"
#include "foundation/pathvars.h"

namespace quirepad {

namespace {

QStringList namesOf(const QString& pattern)
{
    QStringList names;
    for (const QString& path : ls_files(f(pattern)))
        names << path_basename_noext(path);
    return names;
}

} // namespace

WorkflowLibrary::WorkflowLibrary(QObject* parent)
    : QObject(parent)
{
}

void WorkflowLibrary::refreshPluginList()
{
    QStringList user = namesOf(QStringLiteral("${APP_SUPPORT_PLUGINS}/*.workflow"));
    QStringList builtIn;
    for (const QString& name : namesOf(QStringLiteral("${APP_RESOURCES}/PlugIns/*.workflow")))
        if (!user.contains(name) && !builtIn.contains(name))
            builtIn << name;
    user.sort();
    builtIn.sort();
    m_plugins = user;
    if (!user.isEmpty() && !builtIn.isEmpty())
        m_plugins << QString::fromLatin1(separator);
    m_plugins << builtIn;

    m_filters = namesOf(QStringLiteral("${APP_SUPPORT_PLUGINS}/Filters/*.workflow"));
    for (const QString& name : namesOf(QStringLiteral("${APP_RESOURCES}/Filters/*.workflow")))
        if (!m_filters.contains(name))
            m_filters << name;
    emit listsChanged();
}

QList<WorkflowLibrary::Sample> WorkflowLibrary::samples(WorkflowKind kind)
{
    if (kind == WorkflowKind::Plugin)
        return {
            {"SaveAsImage.workflow", "Save as Image.workflow"},
            {"SaveAsText.workflow", "Save as Text.workflow"},
            {"SaveAsWebPage.workflow", "Save as WebPage.workflow"},
            {"FlattenPlugin.workflow", "Save as Flat PDF.workflow"},
        };
    return {
        {"Monochrome.workflow", "Monochrome.workflow"},
        {"CMYK color.workflow", "CMYK color.workflow"},
        {"Grayscale color.workflow", "Grayscale color.workflow"},
        {"PDF X-3.workflow", "PDF X-3.workflow"},
        {"FlattenFilter.workflow", "Flatten PDF.workflow"},
    };
}

QStringList WorkflowLibrary::installWorkflows()
{
    QStringList installed;
    auto install = [&](const QString& source, const QString& target) {
        if (path_exists(target))
            return; // the user's copy is never replaced
        if (cp_file(source, target))
            installed << target;
    };
    const QString userPlugins = f(QStringLiteral("${APP_SUPPORT_PLUGINS}"));
    mk_dirs(userPlugins);
    mk_dirs(userPlugins + QStringLiteral("/Filters"));
    for (const auto& [source, target] : samples(WorkflowKind::Plugin))
        install(f(QStringLiteral("${APP_RESOURCES}/SamplePlugins/%@"), source),
                userPlugins + QLatin1Char('/') + QString::fromUtf8(target));
    for (const auto& [source, target] : samples(WorkflowKind::Filter))
        install(f(QStringLiteral("${APP_RESOURCES}/SampleFilters/%@"), source),
                userPlugins + QStringLiteral("/Filters/") + QString::fromUtf8(target));
    refreshPluginList();
    return installed;
}

} // namespace quirepad
