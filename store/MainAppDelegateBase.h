#pragma once

#include "foundation/Error.h"
#include "store/ManagedObjectContext.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>

namespace quirepad {

class DestinationItem;

// Owns the destination store: opens it on first use, saves it, saves it at
// quit, and exports and imports destinations as settings files. Also holds
// the application context that the interface binds to.
class MainAppDelegateBase : public QObject
{
    Q_OBJECT

public:
    enum class TerminateReply { Now, Later };

    explicit MainAppDelegateBase(QObject* parent = nullptr);
    ~MainAppDelegateBase() override;

    // $XDG_DATA_HOME/com.halvern.Quirepad (~/.local/share/com.halvern.Quirepad).
    static QString applicationDocumentsDirectory();
    static QString storeFileName() { return QStringLiteral("Quirepad.internalbd"); }

    // The context over the store, opened on first use; nullptr while the
    // store cannot be opened (every call tries again and reports again).
    ManagedObjectContext* managedObjectContext();

    int changeCount() const { return m_changeCount; }
    void setChangeCount(int count) { m_changeCount = count; }

    // Saves when there are changes (or changeCount > 0); a failure is
    // shown. Answers whether everything is saved now.
    bool saveAction();

    // At quit: with unsaved changes, save, answer Later and call
    // terminateLater one second after. Without, answer Now.
    TerminateReply applicationShouldTerminate();
    void setTerminateHandler(std::function<void()> handler) { m_terminate = std::move(handler); }

    // Settings files. The panel forms ask for the path; the others take it.
    bool exportTo(const QString& path, QString* error);
    bool exportItemTo(const DestinationItem& item, const QString& path, QString* error);
    bool importFrom(const QString& path, QString* error);
    void saveAs();
    void saveItem(const DestinationItem& item);
    void mergeFrom();

    // An auxiliary context over a settings file (nullptr when the file is
    // not one).
    std::unique_ptr<ManagedObjectContext> makeAuxManagedObjectContext(const QString& path, QString* error);

    // Registers the settings defaults (code, then Defaults.plist) and makes
    // sure the built-in destinations exist. Opens the store.
    void registerDefaults();
    // Fills the application context and creates the two plugin folders.
    void awakeFromNib();
    QVariantMap& applicationContext() { return m_applicationContext; }

signals:
    void storeMovedAside(const QString& from, const QString& to);

private:
    std::unique_ptr<PersistentStore> openStore();
    void report(const Error& error);

    std::unique_ptr<ManagedObjectContext> m_context;
    int m_changeCount = 0;
    QVariantMap m_applicationContext;
    std::function<void()> m_terminate;
};

} // namespace quirepad
