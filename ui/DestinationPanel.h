#pragma once

#include <QString>
#include <QVariantList>
#include <QWidget>

#include <functional>

class QEventLoop;
class QIcon;
class QToolButton;

namespace quirepad {

class DestinationPanelView;
class MainAppDelegateBase;

// The floating grid of destinations that asks where a printed job goes.
// It opens at the mouse position recorded when the job arrived, waits in a
// nested event loop (timers, rescans and the network go on) and answers the
// chosen destination's name, or a null string when the user cancels,
// closes it or goes to the preferences.
class DestinationPanel : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kMargin = 40; // added to the grid each way

    explicit DestinationPanel(MainAppDelegateBase& delegate, QWidget* parent = nullptr);
    ~DestinationPanel() override;

    QString chooseDestination();
    // The document asked about, named in the panel's header.
    void setDocumentTitle(const QString& title);
    QString headerText() const;

    // The item's button: sets the answer to the sender's title and ends the session.
    void selectDestination(QObject* sender);
    void cancelOperation();
    // Ends the session and asks for the preferences (preferencesRequested).
    void showPreferences();
    // Ends the session without an answer from the user (the batch was
    // stopped): the job is kept rather than discarded.
    void withdraw();
    bool wasWithdrawn() const { return m_withdrawn; }
    // Applies a frame. Qt frames hang from their top-left corner, so a
    // change of size keeps the top edge where the frame puts it.
    void setFrame(const QRect& frame, bool display);

    // One grid item: the destination's recid, name and icon.
    static QVariantMap makeButton(const QString& item, const QString& title, const QIcon& image);
    // The panel's size for a number of items and the most per row.
    static QSize panelSize(int count, int maxcount);

    QVariantList destnationList() const { return m_destnationList; }
    DestinationPanelView* destinationView() const { return m_destinationView; }
    QString pluginName() const { return m_pluginName; }
    bool isChoosing() const { return m_modalLoop != nullptr; }

    // Where the visible area of the screen under a point is (tests give
    // their own screens).
    void setVisibleFrameProvider(std::function<QRect(const QPoint&)> provider);

signals:
    void preferencesRequested();
    // The panel is on screen and waiting for the user.
    void choosing();

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void buildList();
    void endModalSession();

    QVariantList m_destnationList;
    DestinationPanelView* m_destinationView = nullptr; // child
    QString m_pluginName;
    QString m_documentTitle;

    MainAppDelegateBase& m_delegate;
    QToolButton* m_preferencesButton = nullptr; // child
    QEventLoop* m_modalLoop = nullptr; // the running session, on the stack of chooseDestination
    std::function<QRect(const QPoint&)> m_visibleFrame;
    bool m_placed = false;
    bool m_withdrawn = false;
    bool m_sessionEnded = false;
};

} // namespace quirepad
