#include "store/MainAppDelegateBase.h"

#include "foundation/Shutdown.h"
#include "foundation/UserFolders.h"

#include "foundation/dialogs.h"
#include "foundation/UserDefaults.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"
#include "store/DestinationTemplates.h"
#include "store/SettingsFileStore.h"
#include "store/SqliteStore.h"
#include "store/destination_copy.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QTimer>
#include <QUrl>

namespace quirepad {

Q_LOGGING_CATEGORY(lcStore, "quirepad.store", QtInfoMsg)

MainAppDelegateBase::MainAppDelegateBase(QObject* parent)
    : QObject(parent)
    , m_terminate([] { Shutdown::request(); })
{
}

MainAppDelegateBase::~MainAppDelegateBase() = default;

QString MainAppDelegateBase::applicationDocumentsDirectory()
{
    return UserFolders::current().dataHome + QStringLiteral("/com.halvern.Quirepad");
}

void MainAppDelegateBase::report(const Error& error)
{
    qCWarning(lcStore).noquote() << error.description << error.failureReason;
    MYDisplayError(error);
}

std::unique_ptr<PersistentStore> MainAppDelegateBase::openStore()
{
    m_changeCount = 0;
    const QString directory = applicationDocumentsDirectory();
    Error error{QStringLiteral("YOUR_ERROR_DOMAIN"), 9999, QStringLiteral("Failed to initialize the application's saved data"),
                QStringLiteral("There was an error creating or loading the application's saved data."), {}};
    const QFileInfo info(directory);
    if (info.exists() && !info.isDir()) {
        error.failureReason = QStringLiteral("Expected a folder to store application data, found a file (%1).").arg(directory);
        report(error);
        return nullptr;
    }
    if (!info.exists() && !QDir().mkpath(directory)) {
        error.recoverySuggestion = QStringLiteral("The folder %1 could not be created.").arg(directory);
        report(error);
        return nullptr;
    }

    const QString path = directory + QLatin1Char('/') + storeFileName();
    SqliteStore::OpenError kind = SqliteStore::OpenError::None;
    QString reason;
    std::unique_ptr<SqliteStore> store = SqliteStore::open(path, &kind, &reason);
    if (store)
        return store;
    if (kind != SqliteStore::OpenError::Unreadable) {
        // Left silent like any store that cannot be added: the program runs
        // without saved destinations; the log says why.
        qCWarning(lcStore).noquote() << "cannot open" << path << ":" << reason;
        return nullptr;
    }

    // Never delete what cannot be read: keep it beside, start afresh.
    const QString aside = mk_unique_filename(
        path + QStringLiteral(".unreadable-") + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")));
    if (!QFile::rename(path, aside)) {
        qCWarning(lcStore).noquote() << "cannot move" << path << "aside";
        return nullptr;
    }
    emit storeMovedAside(path, aside);
    report(Error{QStringLiteral("YOUR_ERROR_DOMAIN"), 9998, QStringLiteral("The saved destinations could not be read"),
                 QStringLiteral("%1 (%2)").arg(path, reason),
                 QStringLiteral("The file was kept as %1 and a new, empty store was created.").arg(aside)});
    store = SqliteStore::open(path, &kind, &reason);
    if (!store)
        qCWarning(lcStore).noquote() << "cannot create" << path << ":" << reason;
    return store;
}

ManagedObjectContext* MainAppDelegateBase::managedObjectContext()
{
    if (!m_context) {
        std::unique_ptr<PersistentStore> store = openStore();
        if (!store)
            return nullptr;
        m_context = std::make_unique<ManagedObjectContext>(std::move(store), this);
    }
    return m_context.get();
}

bool MainAppDelegateBase::saveAction()
{
    ManagedObjectContext* context = m_context.get();
    if (!context || (!context->hasChanges() && m_changeCount <= 0))
        return true;
    QString reason;
    const bool saved = context->save(&reason);
    if (!saved)
        report(Error{QStringLiteral("quirepad.store"), 1, QStringLiteral("The destinations could not be saved."), reason, {}});
    m_changeCount = 0;
    return saved;
}

MainAppDelegateBase::TerminateReply MainAppDelegateBase::applicationShouldTerminate()
{
    if (!m_context || !m_context->hasChanges())
        return TerminateReply::Now;
    saveAction(); // a failed save does not stop the quit
    QTimer::singleShot(1000, this, [this] {
        if (m_terminate)
            m_terminate();
    });
    return TerminateReply::Later;
}

std::unique_ptr<ManagedObjectContext> MainAppDelegateBase::makeAuxManagedObjectContext(const QString& path,
                                                                                      QString* error)
{
    std::unique_ptr<SettingsFileStore> store = SettingsFileStore::open(path, error);
    if (!store)
        return nullptr;
    return std::make_unique<ManagedObjectContext>(std::move(store));
}

bool MainAppDelegateBase::exportTo(const QString& path, QString* error)
{
    saveAction();
    ManagedObjectContext* context = managedObjectContext();
    if (!context) {
        *error = QStringLiteral("the destination store is not available");
        return false;
    }
    std::unique_ptr<ManagedObjectContext> aux = makeAuxManagedObjectContext(path, error);
    if (!aux)
        return false;
    destination_copy(*context, *aux);
    return aux->save(error);
}

bool MainAppDelegateBase::exportItemTo(const DestinationItem& item, const QString& path, QString* error)
{
    saveAction();
    std::unique_ptr<ManagedObjectContext> aux = makeAuxManagedObjectContext(path, error);
    if (!aux)
        return false;
    destination_copy_item(item, *aux);
    return aux->save(error);
}

bool MainAppDelegateBase::importFrom(const QString& path, QString* error)
{
    saveAction();
    ManagedObjectContext* context = managedObjectContext();
    if (!context) {
        *error = QStringLiteral("the destination store is not available");
        return false;
    }
    if (!QFileInfo::exists(path)) {
        *error = QStringLiteral("%1 does not exist").arg(path);
        return false;
    }
    std::unique_ptr<ManagedObjectContext> aux = makeAuxManagedObjectContext(path, error);
    if (!aux)
        return false;
    // Merged records are saved by the next save or at quit.
    destination_copy(*aux, *context);
    return true;
}

namespace {
QString settingsFilter()
{
    return QStringLiteral("Quirepad settings (*.%1)").arg(QLatin1String(SettingsFileStore::extension));
}
QString withExtension(QString path)
{
    const QString suffix = QLatin1Char('.') + QLatin1String(SettingsFileStore::extension);
    if (!path.isEmpty() && !path.endsWith(suffix))
        path += suffix;
    return path;
}
} // namespace

void MainAppDelegateBase::saveAs()
{
    saveAction();
    const QString path = withExtension(QFileDialog::getSaveFileName(nullptr, QString(), QString(), settingsFilter()));
    QString error;
    if (!path.isEmpty() && !exportTo(path, &error))
        MYDisplayAlert(QStringLiteral("The destinations could not be exported.\n") + error);
}

void MainAppDelegateBase::saveItem(const DestinationItem& item)
{
    saveAction();
    const QString path = withExtension(QFileDialog::getSaveFileName(nullptr, QString(), item.name(), settingsFilter()));
    QString error;
    if (!path.isEmpty() && !exportItemTo(item, path, &error))
        MYDisplayAlert(QStringLiteral("The destination could not be exported.\n") + error);
}

void MainAppDelegateBase::mergeFrom()
{
    saveAction();
    const QString path = QFileDialog::getOpenFileName(nullptr, QString(), QString(), settingsFilter());
    QString error;
    if (!path.isEmpty() && !importFrom(path, &error))
        MYDisplayAlert(QStringLiteral("The settings file could not be imported.\n") + error);
}

void MainAppDelegateBase::registerDefaults()
{
    UserDefaults::standard().registerApplicationDefaults();
    if (ManagedObjectContext* context = managedObjectContext())
        DestinationTemplates(*context).ensureBuiltins();
}

void MainAppDelegateBase::awakeFromNib()
{
    m_applicationContext.insert(QStringLiteral("SORT_DESCRIPTORS"),
                                QVariantList{QVariantMap{{"key", QStringLiteral("order")}, {"ascending", true}}});
    m_applicationContext.insert(QStringLiteral("SAMPLE_PDF_FILE"), QUrl::fromLocalFile(QStringLiteral("test.pdf")));
    const QString filters = f(QStringLiteral("${APP_SUPPORT_PLUGINS}/Filters"));
    const QString plugins = f(QStringLiteral("${APP_SUPPORT_PLUGINS}"));
    mk_dirs(filters);
    mk_dirs(plugins);
    m_applicationContext.insert(QStringLiteral("APP_SUPPORT_PLUGINS_FILTERS"), filters);
    m_applicationContext.insert(QStringLiteral("APP_SUPPORT_PLUGINS"), plugins);
}

} // namespace quirepad
