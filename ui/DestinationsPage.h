#pragma once

#include <QWidget>

class QListView;
class QPushButton;

namespace quirepad {

class DestinationForm;
class DestinationItem;
class DestinationListModel;
class MainAppDelegateBase;
class ManagedObjectContext;

// The destinations: the list (drag to reorder, drop a folder or an
// application's .desktop file to add one), the buttons that add, duplicate,
// remove, import and export them, and the form of the selected one. Every
// change is saved at once.
class DestinationsPage : public QWidget
{
    Q_OBJECT

public:
    DestinationsPage(MainAppDelegateBase& delegate, ManagedObjectContext& context, QWidget* parent = nullptr);

    QListView* list() const { return m_list; }
    DestinationListModel* model() const { return m_model; }
    DestinationForm* form() const { return m_form; }
    QPushButton* addButton() const { return m_add; }
    QPushButton* removeButton() const { return m_remove; }
    QPushButton* duplicateButton() const { return m_duplicate; }
    QPushButton* importButton() const { return m_import; }
    QPushButton* exportButton() const { return m_export; }
    QPushButton* saveOneButton() const { return m_saveOne; }

    DestinationItem* selectedItem() const;
    void select(const DestinationItem* item);
    // Asks about input typed but not saved; false when the user keeps it.
    bool mayLeaveCurrent();

    // Adds a destination of a type letter under a free name; answers it.
    DestinationItem* addDestination(const QString& typeLetter);
    DestinationItem* duplicateSelected();
    // Removes the selected destination after asking; built-ins are kept,
    // and the user is told why.
    bool removeSelected();
    void importSettings();
    void exportAll();
    void exportSelected();
    DestinationItem* addFromFiles(const QStringList& files);

signals:
    // A destination was added, removed, renamed or moved.
    void destinationsChanged();

private:
    void save();
    QString freeName(const QString& base, const DestinationItem* except = nullptr) const;
    void updateButtons();

    MainAppDelegateBase& m_delegate;
    ManagedObjectContext& m_context;
    DestinationListModel* m_model = nullptr;
    QListView* m_list = nullptr;
    DestinationForm* m_form = nullptr;
    QPushButton* m_add = nullptr;
    QPushButton* m_duplicate = nullptr;
    QPushButton* m_remove = nullptr;
    QPushButton* m_import = nullptr;
    QPushButton* m_export = nullptr;
    QPushButton* m_saveOne = nullptr;
    const DestinationItem* m_current = nullptr; // the record the form shows
    bool m_reverting = false;
};

} // namespace quirepad
