#include "AppSession.h"

#include "WebCaptureClient.h"

namespace quirepad {

AppSession::AppSession() = default;

AppSession::~AppSession() = default;

MainAppDelegate& AppSession::delegate()
{
    // Made on first use: help and usage texts never touch the user's
    // folders.
    if (!m_delegate) {
        m_delegate = std::make_unique<MainAppDelegate>();
        m_delegate->registerDefaults();
        m_delegate->awakeFromNib();
    }
    return *m_delegate;
}

bool AppSession::showPreferences()
{
    if (!m_showPreferences)
        return false;
    m_showPreferences();
    return true;
}

WebCaptureClient& AppSession::webCapture()
{
    if (!m_webCapture)
        m_webCapture = std::make_unique<WebCaptureClient>();
    return *m_webCapture;
}

ManagedObjectContext* AppSession::context()
{
    return delegate().managedObjectContext();
}

} // namespace quirepad
