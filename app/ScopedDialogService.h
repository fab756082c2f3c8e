#pragma once

#include "foundation/DialogService.h"

#include <memory>
#include <utility>

namespace quirepad {

// Puts a dialog service of its own in place for as long as it lives, then
// puts the one it replaced back. Scopes nest: a nested event loop inside
// one ends before the scope around it does.
template <class Service> class ScopedDialogService
{
public:
    template <class... Args> explicit ScopedDialogService(Args&&... args)
    {
        auto service = std::make_unique<Service>(std::forward<Args>(args)...);
        m_service = service.get();
        m_previous = DialogService::exchangeCurrent(std::move(service));
    }

    ~ScopedDialogService() { DialogService::exchangeCurrent(std::move(m_previous)); }

    ScopedDialogService(const ScopedDialogService&) = delete;
    ScopedDialogService& operator=(const ScopedDialogService&) = delete;

    // Valid while this scope lives.
    Service& service() const { return *m_service; }

private:
    Service* m_service = nullptr; // owned by DialogService while in place
    std::unique_ptr<DialogService> m_previous;
};

} // namespace quirepad
