#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace quirepad {

class DestinationItem;
class ManagedObjectContext;

// Makes new destinations: the two built-ins, one template per type letter,
// from the plugin list, from an application, and from a dropped file.
// Nothing here saves; the store is saved by the delegate.
class DestinationTemplates
{
public:
    explicit DestinationTemplates(ManagedObjectContext& context);

    // Creates "Open in Preview" and "Copy to Desktop" unless a record with
    // recid "copy_to_desktop" exists. Answers whether it created them.
    bool ensureBuiltins();

    // Asks for a name ("Create new destination with name:"), then creates.
    DestinationItem* addDestination(const QString& typeLetter);
    // The template of a type letter; a name empty after trimming creates nothing.
    DestinationItem* createDestination(const QString& typeLetter, const QString& name);
    DestinationItem* addWorkflow(const QString& pluginTitle);
    // tag 1 creates a destination opening with the application; any other
    // tag changes the selected record. A missing appid is the PDF viewer.
    DestinationItem* addApplication(int tag, const QString& title, const QVariantMap& representedObject,
                                    DestinationItem* selected);
    // The same from a chosen desktop entry file; asks for one when the path is empty.
    DestinationItem* browseApplication(int tag, DestinationItem* selected, const QString& chosenEntry = QString());
    // A drop on the list: only the first file counts.
    DestinationItem* readObjectsFromPasteboard(const QStringList& files);

    // The text of a folder's file URL, with its trailing slash.
    static QString folderUrlText(const QString& path);
    static constexpr const char* previewAppId = "com.apple.Preview";

private:
    DestinationItem* insertCommon(const QString& name, const QString& type);

    ManagedObjectContext& m_context;
};

} // namespace quirepad
