#include "ui/DestinationPanel.h"

#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"
#include "store/DestinationItem.h"
#include "store/ManagedObjectContext.h"
#include "store/MainAppDelegateBase.h"
#include "ui/CollectionItemView.h"
#include "ui/DestinationPanelView.h"
#include "ui/window_ext.h"

#include <QApplication>
#include <QCloseEvent>
#include <QEventLoop>
#include <QIcon>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyle>
#include <QLoggingCategory>
#include <QToolButton>

namespace quirepad {

Q_LOGGING_CATEGORY(lcPanel, "quirepad.ui.panel", QtInfoMsg)

DestinationPanel::DestinationPanel(MainAppDelegateBase& delegate, QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint)
    , m_delegate(delegate)
    , m_visibleFrame(&visibleFrameAt)
{
    setWindowTitle(QStringLiteral("Quirepad"));
    setFocusPolicy(Qt::StrongFocus);
    setTopMost(*this, true);

    m_destinationView = new DestinationPanelView(this);
    m_destinationView->move(kMargin / 2, kMargin / 2);
    setFocusProxy(m_destinationView);
    connect(m_destinationView, &MYCollectionView::itemTriggered, this,
            [this](CollectionItemView* view) { selectDestination(view); });
    // A double click chooses the selected destination, as its button would.
    connect(m_destinationView, &MYCollectionView::doubleAction, this, [this](MYCollectionView* grid) {
        if (CollectionItemView* view = grid->itemViewAt(grid->selectionIndex()))
            selectDestination(view);
    });

    m_preferencesButton = new QToolButton(this);
    m_preferencesButton->setAutoRaise(true);
    m_preferencesButton->setFocusPolicy(Qt::NoFocus);
    m_preferencesButton->setToolTip(tr("Preferences…"));
    m_preferencesButton->setIconSize(QSize(14, 14));
    const QIcon gear = QIcon::fromTheme(QStringLiteral("preferences-system"));
    if (gear.isNull())
        m_preferencesButton->setText(QStringLiteral("…"));
    else
        m_preferencesButton->setIcon(gear);
    connect(m_preferencesButton, &QToolButton::clicked, this, &DestinationPanel::showPreferences);

    const QSize size = panelSize(0, 5);
    setFixedSize(size);
}

DestinationPanel::~DestinationPanel()
{
    m_pluginName.clear();
    endModalSession();
}

QVariantMap DestinationPanel::makeButton(const QString& item, const QString& title, const QIcon& image)
{
    return {{QStringLiteral("item"), item}, {QStringLiteral("title"), title}, {QStringLiteral("icon"), image}};
}

QSize DestinationPanel::panelSize(int count, int maxcount)
{
    int columns = 3;
    int rows = 1;
    if (count > 0) {
        columns = count;
        if (maxcount > 0 && count > maxcount) {
            columns = maxcount;
            rows = (count + maxcount - 1) / maxcount;
        }
    }
    const int cell = MYCollectionView::kCellSize;
    return {columns * cell + kMargin, rows * cell + kMargin};
}

void DestinationPanel::setVisibleFrameProvider(std::function<QRect(const QPoint&)> provider)
{
    m_visibleFrame = provider ? std::move(provider) : std::function<QRect(const QPoint&)>(&visibleFrameAt);
}

QString DestinationPanel::chooseDestination()
{
    if (m_modalLoop) {
        qCWarning(lcPanel) << "the destination panel is already waiting for a choice";
        return QString();
    }
    m_pluginName.clear();
    m_withdrawn = false;
    buildList();

    QEventLoop loop;
    m_modalLoop = &loop;
    m_sessionEnded = false;
    setTopMost(*this, true);
    fadeIn(*this);
    raise();
    activateWindow();
    if (QApplication::activeWindow() != this)
        QApplication::alert(this);
    m_destinationView->setFocus(Qt::ActiveWindowFocusReason);
    emit choosing();
    if (!m_sessionEnded) // a receiver of choosing() may have answered already
        loop.exec();
    m_modalLoop = nullptr;
    hide();
    return m_pluginName;
}

void DestinationPanel::setDocumentTitle(const QString& title)
{
    m_documentTitle = title;
    setWindowTitle(title.isEmpty() ? QStringLiteral("Quirepad") : tr("Quirepad — %1").arg(title));
    update();
}

QString DestinationPanel::headerText() const
{
    return m_documentTitle.isEmpty() ? tr("Where does it go?") : tr("Where does “%1” go?").arg(m_documentTitle);
}

void DestinationPanel::buildList()
{
    QVariantList items;
    if (ManagedObjectContext* context = m_delegate.managedObjectContext()) {
        for (const DestinationItem* record : menuDestinations(*context))
            items << makeButton(record->recid(), record->name(), record->icon());
    }

    const UserDefaults& defaults = UserDefaults::standard();
    qint64 maxcount = defaults.integerValue(SettingKey::Maxcount);
    if (maxcount <= 0)
        maxcount = 5;
    const QSize size = panelSize(int(items.size()), int(maxcount));

    QRect frame(geometry().topLeft(), size);
    QVariantMap& context = m_delegate.applicationContext();
    const QVariant point = context.value(QStringLiteral("do_follow_mouse"));
    const bool follow = defaults.boolValue(SettingKey::FollowMouse) && point.canConvert<QPoint>();
    if (follow) {
        const QPoint mouse = point.toPoint();
        frame.moveTopLeft(mouse - QPoint(size.width() / 2, size.height() / 2));
        frame = constrainToVisibleFrame(frame, m_visibleFrame(mouse));
    } else if (!m_placed) {
        // Never shown and nothing to follow: the middle of the screen.
        const QRect visible = m_visibleFrame(QCursor::pos());
        frame.moveCenter(visible.center());
        frame = constrainToVisibleFrame(frame, visible);
    } else {
        frame = constrainToVisibleFrame(frame, m_visibleFrame(frame.center()));
    }

    m_destnationList = items;
    m_destinationView->setContent(items);
    setFrame(frame, true);
    context.remove(QStringLiteral("do_follow_mouse"));
}

void DestinationPanel::setFrame(const QRect& frame, bool display)
{
    setFixedSize(frame.size());
    move(frame.topLeft());
    m_placed = true;
    m_destinationView->setFixedSize(frame.size() - QSize(kMargin, kMargin));
    m_preferencesButton->move(width() - m_preferencesButton->sizeHint().width() - 2, 2);
    if (display)
        update();
}

void DestinationPanel::selectDestination(QObject* sender)
{
    const auto* view = qobject_cast<CollectionItemView*>(sender);
    if (!view)
        return;
    m_pluginName = view->title();
    endModalSession();
    hide();
}

void DestinationPanel::cancelOperation()
{
    endModalSession();
    hide();
}

void DestinationPanel::withdraw()
{
    if (!m_modalLoop)
        return;
    m_withdrawn = true;
    m_pluginName.clear();
    cancelOperation();
}

void DestinationPanel::showPreferences()
{
    endModalSession();
    hide();
    emit preferencesRequested();
}

void DestinationPanel::endModalSession()
{
    m_sessionEnded = true;
    if (m_modalLoop)
        m_modalLoop->quit();
}

void DestinationPanel::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        cancelOperation();
        return;
    }
    if (!m_destinationView->keyDown(event))
        QWidget::keyPressEvent(event);
}

void DestinationPanel::closeEvent(QCloseEvent* event)
{
    endModalSession();
    QWidget::closeEvent(event);
}

void DestinationPanel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF box = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath path;
    path.addRoundedRect(box, 12, 12);
    painter.fillRect(rect(), palette().color(QPalette::Window).darker(104));
    painter.fillPath(path, palette().color(QPalette::Window));
    painter.setPen(QPen(palette().color(QPalette::Mid), 1));
    painter.drawPath(path);
    // The header: which document the panel asks about, in the top margin.
    QFont font = painter.font();
    font.setBold(true);
    painter.setFont(font);
    painter.setPen(palette().color(QPalette::WindowText));
    const int right = m_preferencesButton->geometry().left() - 4;
    const QRect header(14, 0, qMax(0, right - 14), kMargin / 2 + 2);
    painter.drawText(header, Qt::AlignLeft | Qt::AlignVCenter,
                     painter.fontMetrics().elidedText(headerText(), Qt::ElideMiddle, header.width()));
}

} // namespace quirepad
