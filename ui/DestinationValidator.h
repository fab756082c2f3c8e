#pragma once

#include <QString>

namespace quirepad {

class DestinationItem;
class ManagedObjectContext;

// Checks of what the user types into a destination's fields. Each answers
// a sentence saying what is wrong, or a null string when the value is fine.
class DestinationValidator
{
public:
    // Not empty, and no other destination of the context has the name.
    static QString checkName(const QString& name, const DestinationItem* item, ManagedObjectContext& context);
    // A full path (a leading ~ is the home folder) of a folder that exists
    // and can be written, or that can be made: its nearest existing parent
    // is a folder this user can write.
    static QString checkFolder(const QString& path);
    // Only the codes the naming knows: %t (title), %u (user), %h (host).
    static QString checkPattern(const QString& pattern);
    // Empty and "none" mean no filter; any other name must be installed.
    static QString checkFilter(const QString& name);
    static QString checkWorkflow(const QString& name);
    // Empty and the built-in viewer name mean the default PDF viewer;
    // anything else must be an installed desktop entry.
    static QString checkApplication(const QString& appid);
    static QString checkEmail(const QString& address);
};

} // namespace quirepad
