#pragma once

#include "foundation/Error.h"
#include "foundation/Notification.h"

#include <QString>

namespace quirepad {

// The program's dialogs, shown through quirepad::DialogService::current().
// A text splits at its first newline into the headline (before) and the
// explanatory text (after).

// A message with one default OK button. Without a newline the whole text is
// the headline. Answers the button's response code (1000).
int MYDisplayAlert(const QString& text);

// Presents the error's description, failure reason and recovery suggestion.
int MYDisplayError(const Error& error);

// Asks a question; the negative button is the default one. Without a newline
// the headline is "Alert" and the whole text explains. True exactly when the
// affirmative button was chosen.
bool MYDisplayQuestion(const QString& text, const QString& affirmative, const QString& negative);

// Asks for a line of text, starting from initial. Without a newline the
// headline is "Prompt" and the whole text explains. The entered text when
// confirmed, a null string when cancelled or confirmed empty.
QString MYDisplayPrompt(const QString& text, const QString& initial, const QString& confirm, const QString& cancel);

// A desktop notification, unless the "disable_all_displaynotifications"
// setting is on. revealPath is shown in the file manager when the
// notification is activated. The same title and text again within two
// seconds of showing them is not shown again.
void MYDisplayNotification(const QString& title, const QString& text, const QString& revealPath = {});
// The same with actions; a tagged notification (a progress) replaces its
// predecessor and is never held back as a repeat.
void MYDisplayNotification(const Notification& notification);
// Takes a tagged notification off the screen.
void MYWithdrawNotification(const QString& tag);

} // namespace quirepad
