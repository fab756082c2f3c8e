#include "pipeline/UserWorkflows.h"

#include "foundation/fileutil.h"
#include "foundation/pathvars.h"

#include <QFileInfo>

#include <algorithm>

namespace quirepad {

UserWorkflows::UserWorkflows(WorkflowKind kind)
    : m_kind(kind)
{
}

QString UserWorkflows::kindName(WorkflowKind kind)
{
    return kind == WorkflowKind::Plugin ? QStringLiteral("plugin") : QStringLiteral("filter");
}

QString UserWorkflows::folder() const
{
    return f(m_kind == WorkflowKind::Plugin ? QStringLiteral("${APP_SUPPORT_PLUGINS}")
                                             : QStringLiteral("${APP_SUPPORT_PLUGINS}/Filters"));
}

QList<UserWorkflows::Entry> UserWorkflows::list() const
{
    QList<Entry> entries;
    for (QString path : ls_files(folder() + QStringLiteral("/*.workflow"))) {
        if (path.endsWith(u'/'))
            path.chop(1); // a folder workflow
        entries.append({ path_basename_noext(path), path });
    }
    if (m_kind == WorkflowKind::Plugin)
        std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return entries;
}

bool UserWorkflows::remove(const QString& name, QString* why) const
{
    auto refuse = [why](const QString& reason) {
        if (why)
            *why = reason;
        return false;
    };
    QString base = name;
    if (base.endsWith(QLatin1String(".workflow")))
        base.chop(int(qstrlen(".workflow")));
    if (base.isEmpty() || base.contains(u'/') || base == QLatin1String(".") || base == QLatin1String(".."))
        return refuse(QStringLiteral("\"%1\" is not a workflow name").arg(name));
    const QString path = folder() + u'/' + base + QStringLiteral(".workflow");
    if (!QFileInfo(path).exists() && !QFileInfo(path).isSymLink())
        return refuse(QStringLiteral("there is no %1 named \"%2\" in %3").arg(kindName(m_kind), base, folder()));
    if (!rm_file(path))
        return refuse(QStringLiteral("%1 could not be removed").arg(path));
    return true;
}

} // namespace quirepad
