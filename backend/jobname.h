#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quirepad::backend {

// The marker between the submitting user and the title in every job file
// name; the application finds its own jobs by "<user>-D3F2UG-".
inline constexpr std::string_view kJobMarker = "-D3F2UG-";

// Longest file name the spool accepts (NAME_MAX on the usual file systems).
inline constexpr std::size_t kMaxFileNameBytes = 255;

// Cuts valid UTF-8 to at most maxBytes bytes, never inside a character.
std::string utf8_truncate(std::string_view text, std::size_t maxBytes);

// Makes text usable inside a file name: '/', control characters (C0, DEL
// and C1) and bytes that are not valid UTF-8 each become '_'. The result is
// valid UTF-8.
std::string filename_safe(std::string_view text);

// A job title as it appears in the job file name: made safe, leading dots
// removed, cut to maxBytes on a character boundary; "Untitled" when nothing
// is left.
std::string safe_title(std::string_view title, std::size_t maxBytes = 200);

// Replaces line breaks and other control characters (C0, DEL and C1) with
// spaces, for one-line KEY=VALUE text that the application accepts.
std::string one_line(std::string_view text);

// Whether a job-originating-host-name names this machine.
bool is_local_host(std::string_view host, std::string_view ownHostName);

// The job's file name without the extension:
//   local:  "<user>-D3F2UG-<title>"
//   remote: "remote:<user>@<host>-D3F2UG-<title>"   (remoteHost not empty)
// The title is shortened further when needed so that every numbered
// candidate and its ".info" companion stay within kMaxFileNameBytes.
std::string job_base_name(std::string_view user, std::string_view title, std::string_view remoteHost);

// The n-th candidate file name for a base name: n == 0 gives "<base>.pdf",
// n > 0 gives "<base> <n>.pdf".
std::string candidate_name(const std::string& base, unsigned n);

} // namespace quirepad::backend
