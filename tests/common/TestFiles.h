#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

namespace quirepad::test {

// rwxr-xr-x, for workflows and scripts the tests write.
inline constexpr QFile::Permissions kExecutable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
                                                  | QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther
                                                  | QFile::ExeOther;

// Writes the bytes (replacing the file), then sets the permissions if given.
inline bool writeFile(const QString& path, const QByteArray& data, QFile::Permissions permissions = {})
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size())
        return false;
    file.close();
    return permissions ? QFile::setPermissions(path, permissions) : true;
}

// The file's bytes; a null QByteArray when it cannot be read.
inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace quirepad::test
