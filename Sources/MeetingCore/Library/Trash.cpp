#include "MeetingCore/Library/Trash.h"

#include <cerrno>
#include <memory>
#include <string>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/MeetingError.h"

#ifdef MEETING_HAVE_GIO
#include <gio/gio.h>
#endif

namespace meetingcore {

#ifdef MEETING_HAVE_GIO

namespace {

/// GLib's own words are English.
std::string reasonOf(const GError& error) {
    if (error.domain == G_IO_ERROR) {
        switch (error.code) {
            case G_IO_ERROR_NOT_SUPPORTED:
                return "Für diesen Datenträger gibt es keinen Papierkorb.";
            case G_IO_ERROR_NOT_FOUND:
                return systemErrorText(ENOENT);
            case G_IO_ERROR_PERMISSION_DENIED:
                return systemErrorText(EACCES);
            case G_IO_ERROR_READ_ONLY:
                return systemErrorText(EROFS);
            case G_IO_ERROR_NO_SPACE:
                return systemErrorText(ENOSPC);
            default:
                break;
        }
    }
    return std::string("Der Papierkorb ist gestört (") + error.message + ").";
}

}  // namespace

void moveToSystemTrash(const std::filesystem::path& item) {
    const std::unique_ptr<GFile, decltype(&g_object_unref)> file(g_file_new_for_path(item.c_str()),
                                                                 g_object_unref);
    GError* failure = nullptr;
    if (g_file_trash(file.get(), nullptr, &failure) != FALSE) return;
    const std::unique_ptr<GError, decltype(&g_error_free)> error(failure, g_error_free);
    const auto what = quotedName(item) + " konnte nicht in den Papierkorb gelegt werden";
    throw MeetingError::storage(what + (error ? ": " + reasonOf(*error) : "."));
}

#else

void moveToSystemTrash(const std::filesystem::path& item) {
    throw MeetingError::notConfigured(
        quotedName(item) +
        " konnte nicht in den Papierkorb gelegt werden: Diese Ausgabe des Programms "
        "kennt keinen Papierkorb.");
}

#endif

}  // namespace meetingcore
