#pragma once

#include "store/DestinationItem.h"

#include <QHash>
#include <QPointer>
#include <QSet>
#include <QWidget>

#include <functional>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QToolButton;

namespace quirepad {

class DestinationItem;
class ManagedObjectContext;

// The fields of one destination, those its type uses. Each edit is checked
// as it is typed: a valid value is written to the record at once (and
// edited() says so), an invalid one stays in its field, unsaved, with the
// reason beside it. References that are stored but broken (a folder gone,
// an application removed) are shown with their reason too.
class DestinationForm : public QWidget
{
    Q_OBJECT

public:
    enum Field { Name, Folder, Application, Workflow, Filter, Pattern, Author, Email };

    explicit DestinationForm(ManagedObjectContext& context, QWidget* parent = nullptr);

    // Shows this record (nullptr: none); fields typed but not saved are
    // dropped, so ask hasUnsavedInput() first.
    void setItem(DestinationItem* item);
    DestinationItem* item() const { return m_item; }
    // Reads the record again into the fields.
    void reload();

    bool hasUnsavedInput() const { return !m_unsaved.isEmpty(); }
    // The reason shown beside a field; empty when it is fine or hidden.
    QString message(Field field) const;
    QLineEdit* lineEdit(Field field) const;
    QComboBox* comboBox(Field field) const;
    QLabel* preview() const { return m_preview; }

    // Where the folder chooser and the image chooser come from (file
    // dialogs unless replaced).
    void setFolderChooser(std::function<QString(const QString& start)> chooser) { m_chooseFolder = std::move(chooser); }
    void setImageChooser(std::function<QString()> chooser) { m_chooseImage = std::move(chooser); }

signals:
    // The record was changed through the form.
    void edited();

private:
    QWidget* addRow(QFormLayout* form, const QString& label, QWidget* editor, int field = -1);
    QLabel* sectionTitle(const QString& text);
    void showMessage(int field, const QString& problem, bool unsaved);
    void write(const QString& key, const QVariant& value);
    void fillApplications();
    void fillWorkflows();
    void updateVisibility();
    void updatePreview();

    void nameEdited(const QString& text);
    void folderEdited(const QString& text);
    void applicationChosen(int index);
    void workflowEdited(const QString& text);
    void filterEdited(const QString& text);
    void patternEdited(const QString& text);
    void chooseFolder();
    void chooseImage();

    ManagedObjectContext& m_context;
    QPointer<DestinationItem> m_item;
    bool m_loading = false;
    bool m_writing = false;
    QSet<int> m_unsaved;
    QHash<int, QLabel*> m_messages;
    QHash<QWidget*, QWidget*> m_rows; // editor -> its row's field widget
    std::function<QString(const QString&)> m_chooseFolder;
    std::function<QString()> m_chooseImage;

    QLabel* m_typeTitle = nullptr;
    QToolButton* m_icon = nullptr;
    QLineEdit* m_name = nullptr;
    QCheckBox* m_inMenu = nullptr;
    QWidget* m_folderRow = nullptr;
    QLineEdit* m_folder = nullptr;
    QCheckBox* m_askForName = nullptr;
    QCheckBox* m_copyLink = nullptr;
    QComboBox* m_application = nullptr;
    QComboBox* m_workflow = nullptr;
    QCheckBox* m_reusePath = nullptr;
    QLineEdit* m_author = nullptr;
    QComboBox* m_transfer = nullptr;
    QLineEdit* m_email = nullptr;
    QCheckBox* m_eject = nullptr;
    QLineEdit* m_pattern = nullptr;
    QLabel* m_preview = nullptr;
    QComboBox* m_filter = nullptr;
    QCheckBox* m_compress = nullptr;
    QCheckBox* m_overwrite = nullptr;
    QFormLayout* m_targetForm = nullptr;
    QFormLayout* m_fileForm = nullptr;
};

} // namespace quirepad
