#include "foundation/QtDialogService.h"

#include "foundation/FreedesktopNotifier.h"

#include <QDialog>
#include <QFileDialog>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

namespace quirepad {

namespace {

QString okTitle()
{
    return QCoreApplication::translate("DialogService", "OK");
}

// Texts are shown exactly as given, never interpreted as markup.
void setUpMessageBox(QMessageBox& box, QMessageBox::Icon icon, const QString& message, const QString& informative)
{
    box.setWindowTitle(QGuiApplication::applicationDisplayName());
    box.setWindowModality(Qt::ApplicationModal);
    box.setIcon(icon);
    box.setTextFormat(Qt::PlainText);
    box.setText(message);
    if (!informative.isEmpty()) {
        box.setInformativeText(informative);
        // QMessageBox guesses the format of the informative text on its own.
        if (auto* label = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel")))
            label->setTextFormat(Qt::PlainText);
    }
}

int showSingleButtonBox(QMessageBox::Icon icon, const QString& message, const QString& informative)
{
    QMessageBox box;
    setUpMessageBox(box, icon, message, informative);
    QPushButton* ok = box.addButton(okTitle(), QMessageBox::AcceptRole);
    box.setDefaultButton(ok);
    box.setEscapeButton(ok);
    box.exec();
    return DialogService::FirstButtonResponse;
}

} // namespace

QtDialogService::QtDialogService(const QDBusConnection& sessionBus)
    : m_notifier(std::make_unique<FreedesktopNotifier>(sessionBus))
{
}

QtDialogService::~QtDialogService() = default;

int QtDialogService::alert(const QString& message, const QString& informative)
{
    return showSingleButtonBox(QMessageBox::Warning, message, informative);
}

int QtDialogService::error(const quirepad::Error& error)
{
    return showSingleButtonBox(QMessageBox::Critical, messageFor(error), informativeFor(error));
}

bool QtDialogService::question(
    const QString& message, const QString& informative, const QString& affirmativeTitle, const QString& negativeTitle)
{
    QMessageBox box;
    setUpMessageBox(box, QMessageBox::Question, message, informative);
    QPushButton* affirmative = box.addButton(affirmativeTitle, QMessageBox::AcceptRole);
    QPushButton* negative = box.addButton(negativeTitle, QMessageBox::RejectRole);
    box.setDefaultButton(negative);
    box.setEscapeButton(negative);
    box.exec();
    return box.clickedButton() == affirmative;
}

QString QtDialogService::prompt(const QString& message, const QString& informative, const QString& initialValue,
    const QString& confirmTitle, const QString& cancelTitle)
{
    QDialog dialog;
    dialog.setWindowTitle(QGuiApplication::applicationDisplayName());
    dialog.setWindowModality(Qt::ApplicationModal);

    auto* layout = new QVBoxLayout(&dialog);
    auto* messageLabel = new QLabel(message, &dialog);
    messageLabel->setTextFormat(Qt::PlainText);
    messageLabel->setWordWrap(true);
    QFont bold = messageLabel->font();
    bold.setBold(true);
    messageLabel->setFont(bold);
    layout->addWidget(messageLabel);

    if (!informative.isEmpty()) {
        auto* informativeLabel = new QLabel(informative, &dialog);
        informativeLabel->setTextFormat(Qt::PlainText);
        informativeLabel->setWordWrap(true);
        layout->addWidget(informativeLabel);
    }

    auto* field = new QLineEdit(initialValue, &dialog);
    field->setObjectName(QLatin1String(PromptFieldName));
    field->setFixedSize(300, 24);
    field->selectAll();
    layout->addWidget(field);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    auto* cancel = new QPushButton(cancelTitle, &dialog);
    cancel->setObjectName(QLatin1String(PromptCancelName));
    cancel->setAutoDefault(false);
    auto* confirm = new QPushButton(confirmTitle, &dialog);
    confirm->setObjectName(QLatin1String(PromptConfirmName));
    confirm->setDefault(true);
    buttons->addWidget(cancel);
    buttons->addWidget(confirm);
    layout->addLayout(buttons);

    QObject::connect(confirm, &QPushButton::clicked, &dialog, &QDialog::accept);
    QObject::connect(cancel, &QPushButton::clicked, &dialog, &QDialog::reject);
    field->setFocus();

    if (dialog.exec() != QDialog::Accepted)
        return QString();
    const QString entered = field->text();
    return entered.isEmpty() ? QString() : entered;
}

void QtDialogService::notify(const QString& title, const QString& text, const QString& revealPath)
{
    m_notifier->notify(title, text, revealPath);
}

void QtDialogService::post(const Notification& notification)
{
    m_notifier->post(notification);
}

void QtDialogService::withdraw(const QString& tag)
{
    m_notifier->withdraw(tag);
}

QString QtDialogService::chooseSaveFile(const QString& suggestedPath)
{
    return QFileDialog::getSaveFileName(nullptr, QString(), suggestedPath);
}

QStringList QtDialogService::chooseOpenFiles(const QString& nameFilter)
{
    return QFileDialog::getOpenFileNames(nullptr, QString(), QString(), nameFilter);
}

} // namespace quirepad
