#include "ui/DestinationForm.h"

#include "foundation/pathvars.h"
#include "pipeline/WorkflowLibrary.h"
#include "store/DestinationItem.h"
#include "store/DestinationTemplates.h"
#include "ui/DestinationListModel.h"
#include "ui/DestinationValidator.h"
#include "ui/FileNamePreview.h"
#include "ui/InstalledApplications.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

namespace quirepad {

namespace {

const QString kViewer = QString::fromLatin1(DestinationTemplates::previewAppId);

// "file:///home/ann/Scans/" -> "~/Scans".
QString folderForDisplay(const QString& stored)
{
    const QUrl url(stored, QUrl::StrictMode);
    QString path = url.isValid() && url.isLocalFile() ? url.toLocalFile() : stored;
    if (path.size() > 1 && path.endsWith(u'/'))
        path.chop(1);
    const QString home = QDir::homePath();
    if (path == home)
        return QStringLiteral("~");
    if (path.startsWith(home + QLatin1Char('/')))
        return QLatin1Char('~') + path.mid(home.size());
    return path;
}

// The form the store keeps folders in: a file URL with a trailing slash.
QString folderForStore(const QString& typed)
{
    QString path = QDir::cleanPath(expandTilde(typed.trimmed()));
    if (!path.endsWith(u'/'))
        path += u'/';
    return QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded);
}

bool usesFolder(const QString& type)
{
    return type == QLatin1String("F") || type == QLatin1String("D");
}

} // namespace

DestinationForm::DestinationForm(ManagedObjectContext& context, QWidget* parent)
    : QWidget(parent)
    , m_context(context)
{
    m_chooseFolder = [this](const QString& start) {
        return QFileDialog::getExistingDirectory(this, tr("Choose a Folder"), start);
    };
    m_chooseImage = [this] {
        return QFileDialog::getOpenFileName(
            this, tr("Choose an Image"), QDir::homePath(), tr("Images (*.png *.jpg *.jpeg *.svg *.bmp *.gif)"));
    };

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(18, 12, 18, 12);
    layout->setSpacing(6);

    // Head: icon, name and type.
    auto* head = new QHBoxLayout;
    head->setSpacing(12);
    m_icon = new QToolButton(this);
    m_icon->setIconSize(QSize(40, 40));
    m_icon->setAutoRaise(true);
    m_icon->setToolTip(tr("Change the icon"));
    m_icon->setPopupMode(QToolButton::InstantPopup);
    auto* iconMenu = new QMenu(m_icon);
    iconMenu->addAction(tr("Choose Image\u2026"), this, &DestinationForm::chooseImage);
    iconMenu->addAction(tr("Use the Standard Icon"), this, [this] { write(QStringLiteral("image"), QVariant()); });
    m_icon->setMenu(iconMenu);
    head->addWidget(m_icon, 0, Qt::AlignTop);
    auto* headText = new QVBoxLayout;
    headText->setSpacing(2);
    m_name = new QLineEdit(this);
    m_name->setPlaceholderText(tr("Name"));
    m_name->setAccessibleName(tr("Name"));
    QFont big = m_name->font();
    big.setPointSizeF(big.pointSizeF() * 1.2);
    m_name->setFont(big);
    headText->addWidget(m_name);
    m_messages.insert(Name, new QLabel(this));
    headText->addWidget(m_messages.value(Name));
    m_typeTitle = new QLabel(this);
    m_typeTitle->setForegroundRole(QPalette::PlaceholderText);
    headText->addWidget(m_typeTitle);
    head->addLayout(headText, 1);
    layout->addLayout(head);
    m_inMenu = new QCheckBox(tr("Show in the panel and the tray menu"), this);
    layout->addWidget(m_inMenu);

    // Where the files go.
    layout->addSpacing(8);
    layout->addWidget(sectionTitle(tr("Delivery")));
    m_targetForm = new QFormLayout;
    m_targetForm->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_targetForm->setLabelAlignment(Qt::AlignRight | Qt::AlignTop);
    auto* folderBox = new QWidget(this);
    auto* folderLine = new QHBoxLayout(folderBox);
    folderLine->setContentsMargins(0, 0, 0, 0);
    m_folder = new QLineEdit(folderBox);
    m_folder->setPlaceholderText(tr("~/Documents/Printed"));
    auto* browse = new QPushButton(tr("Choose\u2026"), folderBox);
    folderLine->addWidget(m_folder, 1);
    folderLine->addWidget(browse);
    m_folderRow = addRow(m_targetForm, tr("Folder:"), folderBox, Folder);
    m_rows.insert(m_folder, m_folderRow);
    m_askForName = new QCheckBox(tr("Ask where to save each file"), this);
    addRow(m_targetForm, QString(), m_askForName);
    m_copyLink = new QCheckBox(tr("Copy the file's link to the clipboard"), this);
    addRow(m_targetForm, QString(), m_copyLink);
    m_application = new QComboBox(this);
    m_application->setIconSize(QSize(20, 20));
    addRow(m_targetForm, tr("Application:"), m_application, Application);
    m_workflow = new QComboBox(this);
    m_workflow->setEditable(true);
    m_workflow->setInsertPolicy(QComboBox::NoInsert);
    addRow(m_targetForm, tr("Workflow:"), m_workflow, Workflow);
    m_reusePath = new QCheckBox(tr("Hand the workflow the file itself, not a copy"), this);
    addRow(m_targetForm, QString(), m_reusePath);
    m_author = new QLineEdit(this);
    m_author->setPlaceholderText(tr("Unknown"));
    addRow(m_targetForm, tr("Author:"), m_author, Author);
    m_transfer = new QComboBox(this);
    m_transfer->addItem(tr("USB cable"), 0);
    m_transfer->addItem(tr("E-mail"), 1);
    addRow(m_targetForm, tr("Send by:"), m_transfer);
    m_email = new QLineEdit(this);
    m_email->setPlaceholderText(tr("name@kindle.com"));
    addRow(m_targetForm, tr("Reader's address:"), m_email, Email);
    m_eject = new QCheckBox(tr("Eject the reader afterwards"), this);
    addRow(m_targetForm, QString(), m_eject);
    layout->addLayout(m_targetForm);

    // How the file is named and prepared.
    layout->addSpacing(8);
    layout->addWidget(sectionTitle(tr("File")));
    m_fileForm = new QFormLayout;
    m_fileForm->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_fileForm->setLabelAlignment(Qt::AlignRight | Qt::AlignTop);
    m_pattern = new QLineEdit(this);
    m_pattern->setToolTip(tr("%t is the document's title, %u your user name, %h the computer's name."));
    QWidget* patternRow = addRow(m_fileForm, tr("File name:"), m_pattern, Pattern);
    m_preview = new QLabel(this);
    m_preview->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_preview->setForegroundRole(QPalette::PlaceholderText);
    patternRow->layout()->addWidget(m_preview);
    m_filter = new QComboBox(this);
    m_filter->setEditable(true);
    m_filter->setInsertPolicy(QComboBox::NoInsert);
    addRow(m_fileForm, tr("Filter:"), m_filter, Filter);
    m_compress = new QCheckBox(tr("Make the PDF smaller"), this);
    addRow(m_fileForm, QString(), m_compress);
    m_overwrite = new QCheckBox(tr("Replace a file of the same name"), this);
    addRow(m_fileForm, QString(), m_overwrite);
    layout->addLayout(m_fileForm);
    layout->addStretch(1);

    // The labels of both parts share one column.
    int labelWidth = 0;
    for (QFormLayout* form : { m_targetForm, m_fileForm })
        for (int row = 0; row < form->rowCount(); ++row)
            if (QLayoutItem* label = form->itemAt(row, QFormLayout::LabelRole); label && label->widget())
                labelWidth = std::max(labelWidth, label->widget()->sizeHint().width());
    for (QFormLayout* form : { m_targetForm, m_fileForm })
        for (int row = 0; row < form->rowCount(); ++row)
            if (QLayoutItem* label = form->itemAt(row, QFormLayout::LabelRole); label && label->widget()) {
                label->widget()->setMinimumWidth(labelWidth);
                static_cast<QLabel*>(label->widget())->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
            }
    for (QLabel* message : std::as_const(m_messages)) {
        message->setWordWrap(true);
        message->setStyleSheet(QStringLiteral("color: #c01c28;"));
        message->hide();
    }

    connect(m_name, &QLineEdit::textEdited, this, &DestinationForm::nameEdited);
    connect(m_folder, &QLineEdit::textEdited, this, &DestinationForm::folderEdited);
    connect(browse, &QPushButton::clicked, this, &DestinationForm::chooseFolder);
    connect(m_application, &QComboBox::activated, this, &DestinationForm::applicationChosen);
    connect(m_workflow, &QComboBox::currentTextChanged, this, &DestinationForm::workflowEdited);
    connect(m_filter, &QComboBox::currentTextChanged, this, &DestinationForm::filterEdited);
    connect(m_pattern, &QLineEdit::textEdited, this, &DestinationForm::patternEdited);
    connect(m_author, &QLineEdit::textEdited, this, [this](const QString& text) {
        write(QStringLiteral("config.author_name"), text.trimmed().isEmpty() ? QVariant() : QVariant(text.trimmed()));
    });
    connect(m_email, &QLineEdit::textEdited, this, [this](const QString& text) {
        const QString problem = DestinationValidator::checkEmail(text);
        showMessage(Email, problem, !problem.isEmpty());
        if (problem.isEmpty())
            write(QStringLiteral("config.reader_email"), text.trimmed());
    });
    connect(m_transfer, &QComboBox::activated, this, [this] {
        write(QStringLiteral("config.transfer_type"), m_transfer->currentData().toInt());
        updateVisibility();
    });
    const auto flag = [this](QCheckBox* box, const QString& key) {
        connect(box, &QCheckBox::toggled, this, [this, key](bool on) { write(key, on); });
    };
    flag(m_inMenu, QStringLiteral("in_menu"));
    flag(m_askForName, QStringLiteral("config.ask_to_confim"));
    flag(m_copyLink, QStringLiteral("config.copy_to_clipboard"));
    flag(m_reusePath, QStringLiteral("config.reuse_path"));
    flag(m_eject, QStringLiteral("config.eject_kindle"));
    flag(m_compress, QStringLiteral("do_compress"));
    flag(m_overwrite, QStringLiteral("do_overwrite"));

    fillApplications();
    fillWorkflows();
    setItem(nullptr);
}

QLabel* DestinationForm::sectionTitle(const QString& text)
{
    auto* title = new QLabel(text, this);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    return title;
}

QWidget* DestinationForm::addRow(QFormLayout* form, const QString& label, QWidget* editor, int field)
{
    if (field < 0) {
        form->addRow(new QLabel(label, this), editor);
        m_rows.insert(editor, editor);
        return editor;
    }
    // The field with its message underneath.
    auto* box = new QWidget(this);
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(2);
    column->addWidget(editor);
    auto* message = new QLabel(box);
    column->addWidget(message);
    m_messages.insert(field, message);
    form->addRow(new QLabel(label, this), box);
    m_rows.insert(editor, box);
    return box;
}

QString DestinationForm::message(Field field) const
{
    const QLabel* label = m_messages.value(field);
    return label && !label->isHidden() ? label->text() : QString();
}

QLineEdit* DestinationForm::lineEdit(Field field) const
{
    switch (field) {
    case Name:
        return m_name;
    case Folder:
        return m_folder;
    case Pattern:
        return m_pattern;
    case Author:
        return m_author;
    case Email:
        return m_email;
    case Workflow:
        return m_workflow->lineEdit();
    case Filter:
        return m_filter->lineEdit();
    default:
        return nullptr;
    }
}

QComboBox* DestinationForm::comboBox(Field field) const
{
    switch (field) {
    case Application:
        return m_application;
    case Workflow:
        return m_workflow;
    case Filter:
        return m_filter;
    default:
        return nullptr;
    }
}

void DestinationForm::showMessage(int field, const QString& problem, bool unsaved)
{
    if (QLabel* label = m_messages.value(field)) {
        label->setText(problem);
        label->setVisible(!problem.isEmpty());
    }
    if (unsaved)
        m_unsaved.insert(field);
    else
        m_unsaved.remove(field);
}

void DestinationForm::write(const QString& key, const QVariant& value)
{
    if (m_loading || !m_item)
        return;
    m_writing = true;
    const bool changed = m_item->setValue(key, value);
    m_writing = false;
    if (changed) {
        if (key == QLatin1String("image") || key == QLatin1String("config.output_dir"))
            m_icon->setIcon(m_item->icon());
        emit edited();
    }
}

void DestinationForm::fillApplications()
{
    m_application->clear();
    m_application->addItem(QIcon::fromTheme(QStringLiteral("application-pdf")), tr("Default PDF viewer"), QString());
    for (const InstalledApplications::Entry& entry : InstalledApplications::list())
        m_application->addItem(entry.icon, entry.name, entry.id);
}

void DestinationForm::fillWorkflows()
{
    WorkflowLibrary library;
    library.refreshPluginList();
    const QSignalBlocker a(m_workflow), b(m_filter);
    m_workflow->clear();
    for (const QString& name : library.allPluginFiles())
        if (name != QLatin1String(WorkflowLibrary::separator))
            m_workflow->addItem(name);
    m_filter->clear();
    m_filter->addItem(tr("None"), QString());
    for (const QString& name : library.allFilterFiles())
        m_filter->addItem(name, name);
}

void DestinationForm::setItem(DestinationItem* item)
{
    if (m_item)
        disconnect(m_item, nullptr, this, nullptr);
    m_item = item;
    if (m_item)
        connect(m_item, &DestinationItem::valueChanged, this, [this] {
            if (!m_writing)
                reload();
        });
    m_unsaved.clear();
    fillWorkflows();
    reload();
}

void DestinationForm::reload()
{
    m_loading = true;
    const bool any = m_item;
    setEnabled(any);
    for (QLabel* label : std::as_const(m_messages))
        label->hide();
    m_unsaved.clear();
    const QVariantMap config = any ? m_item->config() : QVariantMap();
    const QString type = any ? m_item->type() : QString();

    m_icon->setIcon(any ? m_item->icon() : QIcon());
    m_name->setText(any ? m_item->name() : QString());
    m_typeTitle->setText(any ? DestinationListModel::typeTitle(type)
                + (m_item->boolForKey(QStringLiteral("is_system")) ? tr(" \u00b7 built in") : QString())
                             : QString());
    m_inMenu->setChecked(any && m_item->boolForKey(QStringLiteral("in_menu")));

    const QString folder = config.value(QStringLiteral("output_dir")).toString();
    m_folder->setText(folderForDisplay(folder));
    if (any && usesFolder(type))
        showMessage(Folder, DestinationValidator::checkFolder(m_folder->text()), false);
    m_askForName->setChecked(config.value(QStringLiteral("ask_to_confim")).toBool());
    m_copyLink->setChecked(config.value(QStringLiteral("copy_to_clipboard")).toBool());

    const QString appid = config.value(QStringLiteral("appid")).toString();
    const QString shownApp = appid == kViewer ? QString() : appid;
    int appIndex = m_application->findData(shownApp);
    if (appIndex < 0 && !shownApp.isEmpty()) {
        m_application->addItem(tr("%1 (not installed)").arg(shownApp), shownApp);
        appIndex = m_application->count() - 1;
    }
    m_application->setCurrentIndex(std::max(appIndex, 0));
    if (any && type == QLatin1String("O"))
        showMessage(Application, DestinationValidator::checkApplication(appid), false);

    const QString workflow = config.value(QStringLiteral("plugin_name")).toString();
    m_workflow->setCurrentText(workflow);
    if (any && type == QLatin1String("X"))
        showMessage(Workflow, DestinationValidator::checkWorkflow(workflow), false);
    m_reusePath->setChecked(config.value(QStringLiteral("reuse_path")).toBool());
    m_author->setText(config.value(QStringLiteral("author_name")).toString());
    m_transfer->setCurrentIndex(config.value(QStringLiteral("transfer_type")).toInt() == 1 ? 1 : 0);
    m_email->setText(config.value(QStringLiteral("reader_email")).toString());
    m_eject->setChecked(config.value(QStringLiteral("eject_kindle")).toBool());

    m_pattern->setText(any ? m_item->value(QStringLiteral("name_pattern")).toString() : QString());
    const QString filter = any ? m_item->value(QStringLiteral("tranform")).toString() : QString();
    if (filter.isEmpty() || filter == QLatin1String("none"))
        m_filter->setCurrentIndex(0);
    else
        m_filter->setCurrentText(filter);
    showMessage(Filter, DestinationValidator::checkFilter(filter), false);
    m_compress->setChecked(any && m_item->boolForKey(QStringLiteral("do_compress")));
    m_overwrite->setChecked(any && m_item->boolForKey(QStringLiteral("do_overwrite")));
    updateVisibility();
    updatePreview();
    m_loading = false;
}

void DestinationForm::updateVisibility()
{
    const QString type = m_item ? m_item->type() : QString();
    const bool byMail = m_transfer->currentIndex() == 1;
    const auto show = [this](QFormLayout* form, QWidget* editor, bool visible) {
        form->setRowVisible(m_rows.value(editor, editor), visible);
    };
    show(m_targetForm, m_folder, usesFolder(type));
    show(m_targetForm, m_askForName, type == QLatin1String("F"));
    show(m_targetForm, m_copyLink, type == QLatin1String("D"));
    show(m_targetForm, m_application, type == QLatin1String("O"));
    show(m_targetForm, m_workflow, type == QLatin1String("X"));
    show(m_targetForm, m_reusePath, type == QLatin1String("X"));
    show(m_targetForm, m_author, type == QLatin1String("B") || type == QLatin1String("I"));
    show(m_targetForm, m_transfer, type == QLatin1String("K"));
    show(m_targetForm, m_email, type == QLatin1String("K") && byMail);
    show(m_targetForm, m_eject, type == QLatin1String("K") && !byMail);
    show(m_fileForm, m_overwrite, usesFolder(type));
}

void DestinationForm::updatePreview()
{
    const QString problem = DestinationValidator::checkPattern(m_pattern->text());
    m_preview->setText(problem.isEmpty()
            ? tr("\u201c%1\u201d is delivered as %2")
                  .arg(FileNamePreview::sampleTitle(), FileNamePreview::fileName(m_pattern->text()))
            : QString());
    m_preview->setVisible(problem.isEmpty());
}

void DestinationForm::nameEdited(const QString& text)
{
    const QString problem = DestinationValidator::checkName(text, m_item, m_context);
    showMessage(Name, problem, !problem.isEmpty());
    if (problem.isEmpty())
        write(QStringLiteral("name"), text.trimmed());
}

void DestinationForm::folderEdited(const QString& text)
{
    const QString problem = DestinationValidator::checkFolder(text);
    showMessage(Folder, problem, !problem.isEmpty());
    if (problem.isEmpty())
        write(QStringLiteral("config.output_dir"), folderForStore(text));
}

void DestinationForm::chooseFolder()
{
    const QString start = expandTilde(m_folder->text().trimmed());
    const QString chosen = m_chooseFolder(QDir::isAbsolutePath(start) ? start : QDir::homePath());
    if (chosen.isEmpty())
        return;
    m_folder->setText(folderForDisplay(QUrl::fromLocalFile(chosen).toString()));
    folderEdited(m_folder->text());
}

void DestinationForm::applicationChosen(int index)
{
    const QString appid = m_application->itemData(index).toString();
    showMessage(Application, DestinationValidator::checkApplication(appid), false);
    write(QStringLiteral("config.appid"), appid.isEmpty() ? kViewer : appid);
}

void DestinationForm::workflowEdited(const QString& text)
{
    if (m_loading)
        return;
    const QString problem = DestinationValidator::checkWorkflow(text);
    showMessage(Workflow, problem, !problem.isEmpty());
    if (problem.isEmpty())
        write(QStringLiteral("config.plugin_name"), text);
}

void DestinationForm::filterEdited(const QString& text)
{
    if (m_loading)
        return;
    const QString name = text == m_filter->itemText(0) ? QString() : text.trimmed();
    const QString problem = DestinationValidator::checkFilter(name);
    showMessage(Filter, problem, !problem.isEmpty());
    if (problem.isEmpty())
        write(QStringLiteral("tranform"), name.isEmpty() ? QVariant() : QVariant(name));
}

void DestinationForm::patternEdited(const QString& text)
{
    const QString problem = DestinationValidator::checkPattern(text);
    showMessage(Pattern, problem, !problem.isEmpty());
    updatePreview();
    if (problem.isEmpty())
        write(QStringLiteral("name_pattern"), text.isEmpty() ? QVariant() : QVariant(text));
}

void DestinationForm::chooseImage()
{
    const QString path = m_chooseImage();
    if (path.isEmpty())
        return;
    QImage image(path);
    if (image.isNull())
        return;
    if (image.width() > 128 || image.height() > 128)
        image = image.scaled(128, 128, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    write(QStringLiteral("image"), image);
}

} // namespace quirepad
