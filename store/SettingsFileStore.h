#pragma once

#include "store/PersistentStore.h"

#include <QString>

#include <memory>

namespace quirepad {

// Destinations in a "quirepad-settings" file: a versioned XML document,
// written whole and atomically (a temporary file renamed into place).
//
//   <quirepad-settings version="1">
//     <destination>
//       <attribute name="recid" kind="string">...</attribute>
//       <attribute name="rule" kind="data">base64</attribute>
//     </destination>
//   </quirepad-settings>
class SettingsFileStore : public PersistentStore
{
public:
    static constexpr const char* extension = "quirepad-settings";
    static constexpr int formatVersion = 1;

    // A store over an existing settings file, or over a path where none
    // exists yet. nullptr (with a message) when something other than a
    // settings file of a version we can read is there.
    static std::unique_ptr<SettingsFileStore> open(const QString& path, QString* error);

    std::optional<QList<StoredRecord>> loadAll(QString* error) override;
    bool save(const SaveRequest& request, QList<qint64>* insertedRowIds, QString* error) override;
    QString location() const override { return m_path; }

    static QByteArray serialize(const QList<StoredRecord>& records);
    static std::optional<QList<StoredRecord>> parse(const QByteArray& data, QString* error);

private:
    explicit SettingsFileStore(const QString& path, QList<StoredRecord> records);

    QString m_path;
    QList<StoredRecord> m_records;
};

} // namespace quirepad
