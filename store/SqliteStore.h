#pragma once

#include "store/PersistentStore.h"

#include <QString>

#include <memory>

namespace quirepad {

// Destination records in an SQLite file (Qt SQL). The layout version
// lives in PRAGMA user_version and older files are migrated on opening.
class SqliteStore : public PersistentStore
{
public:
    enum class OpenError { None, Unreadable, Io };

    ~SqliteStore() override;

    // Opens or creates the file. Unreadable: the file exists but is not a
    // database of ours (damaged, foreign, or from a newer version).
    static std::unique_ptr<SqliteStore> open(const QString& path, OpenError* errorKind, QString* error);

    std::optional<QList<StoredRecord>> loadAll(QString* error) override;
    bool save(const SaveRequest& request, QList<qint64>* insertedRowIds, QString* error) override;
    QString location() const override { return m_path; }

    int schemaVersion() const;

private:
    SqliteStore(const QString& path, const QString& connectionName);
    bool migrate(QString* error);

    QString m_path;
    QString m_connectionName;
};

} // namespace quirepad
