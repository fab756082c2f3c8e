#include "pipeline/WorkflowCreator.h"

#include "foundation/desktop.h"
#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"
#include "pipeline/WorkflowLibrary.h"

#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcWorkflowCreator, "quirepad.packages", QtInfoMsg)

namespace {

const QString kExtension = QStringLiteral(".workflow");
// The longest file name most file systems take, in bytes.
constexpr qsizetype kMaxFileNameBytes = 255;

std::filesystem::path fsPath(const QString& path)
{
    return std::filesystem::path(QFile::encodeName(path).toStdString());
}

QString withoutExtension(const QString& name)
{
    return name.endsWith(kExtension) ? name.chopped(kExtension.size()) : name;
}

bool linkOrFileExists(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

QString errnoText()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

WorkflowCreator::WorkflowCreator(WorkflowKind kind, WorkflowLibrary* library)
    : m_kind(kind)
    , m_library(library)
{
}

QString WorkflowCreator::sampleFolder() const
{
    return f(QStringLiteral("${APP_RESOURCES}"))
        + (m_kind == WorkflowKind::Plugin ? QStringLiteral("/SamplePlugins") : QStringLiteral("/SampleFilters"));
}

QList<WorkflowCreator::Sample> WorkflowCreator::samples() const
{
    const QList<WorkflowLibrary::Sample> installedNames = WorkflowLibrary::samples(m_kind);
    QList<Sample> found;
    for (QString path : ls_files(sampleFolder() + QStringLiteral("/*.workflow"))) {
        if (path.endsWith(u'/'))
            path.chop(1); // a folder workflow
        Sample sample { path_basename_noext(path), QString(), path };
        for (const WorkflowLibrary::Sample& known : installedNames)
            if (path_basename(path) == QString::fromUtf8(known.file))
                sample.title = withoutExtension(QString::fromUtf8(known.installedName));
        if (sample.title.isEmpty())
            sample.title = sample.id;
        found << sample;
    }
    return found;
}

std::optional<WorkflowCreator::Sample> WorkflowCreator::sample(const QString& idOrTitle) const
{
    const QString wanted = withoutExtension(idOrTitle);
    for (const Sample& sample : samples())
        if (sample.id == wanted || sample.title == wanted)
            return sample;
    return std::nullopt;
}

std::optional<QString> WorkflowCreator::nameProblem(const QString& name)
{
    const QString base = withoutExtension(name);
    if (base.isEmpty())
        return QStringLiteral("A workflow needs a name.");
    if (base.contains(u'/'))
        return QStringLiteral("\"%1\" cannot name a workflow: a name must not contain \"/\".").arg(name);
    if (base == QLatin1String(".") || base == QLatin1String(".."))
        return QStringLiteral("\"%1\" cannot name a workflow.").arg(name);
    if (base.startsWith(u'.'))
        return QStringLiteral("\"%1\" cannot name a workflow: a name starting with \".\" would be hidden.").arg(name);
    for (const QChar c : base)
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            return QStringLiteral("\"%1\" cannot name a workflow: a name must not contain control characters.")
                .arg(name.simplified());
    if (QFile::encodeName(base + kExtension).size() > kMaxFileNameBytes)
        return QStringLiteral("\"%1\" is too long to name a workflow.").arg(name);
    return std::nullopt;
}

QString WorkflowCreator::editablePath(const QString& workflowPath)
{
    const QFileInfo info(workflowPath);
    return info.isDir() ? workflowPath + QStringLiteral("/run") : workflowPath;
}

bool WorkflowCreator::openForEditing(const QString& workflowPath)
{
    const QString editable = editablePath(workflowPath);
    if (!linkOrFileExists(editable)) {
        qCWarning(lcWorkflowCreator).noquote() << "nothing to edit at" << editable;
        return false;
    }
    return open_file(editable);
}

WorkflowCreator::Result WorkflowCreator::createInteractively(const QString& sampleId, const QString& suggestedName)
{
    const bool plugin = m_kind == WorkflowKind::Plugin;
    if (!sample(sampleId)) {
        Result result;
        result.error = QStringLiteral("There is no sample %1 named \"%2\".").arg(UserWorkflows::kindName(m_kind), sampleId);
        MYDisplayAlert(result.error);
        return result;
    }
    const QString typed = MYDisplayPrompt(QString::fromUtf8(plugin ? kPluginPrompt : kFilterPrompt), suggestedName,
                                          plugin ? QStringLiteral("Create and Edit The Plugin")
                                                 : QStringLiteral("Create and Edit The Filter"),
                                          QStringLiteral("Cancel"));
    if (typed.isNull()) {
        Result result;
        result.outcome = Outcome::Cancelled;
        return result;
    }
    const QString name = typed.trimmed();
    if (const std::optional<QString> problem = nameProblem(name)) {
        Result result;
        result.error = *problem;
        MYDisplayAlert(QStringLiteral("The %1 was not created\n%2").arg(UserWorkflows::kindName(m_kind), *problem));
        return result;
    }
    Result result = create(sampleId, name, true);
    if (result.outcome == Outcome::Failed)
        MYDisplayAlert(QStringLiteral("The %1 was not created\n%2").arg(UserWorkflows::kindName(m_kind), result.error));
    return result;
}

WorkflowCreator::Result WorkflowCreator::create(const QString& sampleId, const QString& name, bool openForEditing)
{
    Result result;
    const std::optional<Sample> source = sample(sampleId);
    if (!source) {
        QStringList known;
        for (const Sample& s : samples())
            known << s.id;
        result.error = QStringLiteral("there is no sample %1 named \"%2\" (samples: %3)")
                           .arg(UserWorkflows::kindName(m_kind), sampleId, known.join(QStringLiteral(", ")));
        return result;
    }
    if (const std::optional<QString> problem = nameProblem(name)) {
        result.error = *problem;
        return result;
    }
    const QString folder = UserWorkflows(m_kind).folder();
    result.path = folder + u'/' + withoutExtension(name) + kExtension;
    if (!mk_dirs(folder)) {
        result.outcome = Outcome::Failed;
        result.error = QStringLiteral("cannot create the folder %1").arg(folder);
        return result;
    }
    if (copySample(source->path, result.path, result))
        qCInfo(lcWorkflowCreator).noquote() << "created" << result.path << "from the sample" << source->path;
    else if (result.outcome == Outcome::Existing)
        qCInfo(lcWorkflowCreator).noquote() << result.path << "is there already and is kept";
    else
        qCWarning(lcWorkflowCreator).noquote() << "cannot create" << result.path << ":" << result.error;
    if (openForEditing && result.outcome != Outcome::Failed)
        result.opened = WorkflowCreator::openForEditing(result.path);
    if (m_library)
        m_library->refreshPluginList();
    return result;
}

// Creates the target exclusively (a file or link already there, even one
// made meanwhile, is never written through), then copies the sample in.
bool WorkflowCreator::copySample(const QString& source, const QString& target, Result& result) const
{
    const QByteArray nativeTarget = QFile::encodeName(target);
    const QFileInfo sourceInfo(source);
    result.outcome = Outcome::Failed;
    if (linkOrFileExists(target)) {
        result.outcome = Outcome::Existing;
        return false;
    }
    if (sourceInfo.isDir()) {
        if (::mkdir(nativeTarget.constData(), 0755) != 0) {
            if (errno == EEXIST)
                result.outcome = Outcome::Existing;
            else
                result.error = QStringLiteral("cannot create %1: %2").arg(target, errnoText());
            return false;
        }
        std::error_code ec;
        std::filesystem::copy(fsPath(source), fsPath(target),
                              std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks, ec);
        if (ec) {
            result.error = QStringLiteral("cannot copy %1 to %2: %3").arg(source, target, QString::fromStdString(ec.message()));
            std::filesystem::remove_all(fsPath(target), ec);
            return false;
        }
        result.outcome = Outcome::Created;
        return true;
    }

    QFile in(source);
    if (!in.open(QIODevice::ReadOnly)) {
        result.error = QStringLiteral("cannot read the sample %1: %2").arg(source, in.errorString());
        return false;
    }
    const QByteArray contents = in.readAll();
    const mode_t mode = (QFileInfo(source).permissions() & QFile::ExeOwner) ? 0755 : 0644;
    const int fd = ::open(nativeTarget.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd < 0) {
        if (errno == EEXIST)
            result.outcome = Outcome::Existing;
        else
            result.error = QStringLiteral("cannot create %1: %2").arg(target, errnoText());
        return false;
    }
    QFile out;
    if (!out.open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        ::unlink(nativeTarget.constData());
        result.error = QStringLiteral("cannot write %1").arg(target);
        return false;
    }
    if (out.write(contents) != contents.size() || !out.flush()) {
        result.error = QStringLiteral("cannot write %1: %2").arg(target, out.errorString());
        out.close();
        ::unlink(nativeTarget.constData());
        return false;
    }
    result.outcome = Outcome::Created;
    return true;
}

} // namespace quirepad
