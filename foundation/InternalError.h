#pragma once

#include <QString>

#include <stdexcept>

namespace quirepad {

// Raised only where a missing folder leaves the caller nothing to do:
// name "Internal Error", reason "unable to create dir <path>".
class InternalError : public std::runtime_error
{
public:
    InternalError(const QString& name, const QString& reason)
        : std::runtime_error((name + QStringLiteral(": ") + reason).toStdString())
        , m_name(name)
        , m_reason(reason)
    {
    }

    QString name() const { return m_name; }
    QString reason() const { return m_reason; }

private:
    QString m_name;
    QString m_reason;
};

} // namespace quirepad
