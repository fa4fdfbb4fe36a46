#include "MeetingCore/Library/Trash.h"

#include <memory>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/MeetingError.h"

#ifdef MEETING_HAVE_GIO
#include <gio/gio.h>
#endif

namespace meetingcore {

#ifdef MEETING_HAVE_GIO

void moveToSystemTrash(const std::filesystem::path& item) {
    const std::unique_ptr<GFile, decltype(&g_object_unref)> file(g_file_new_for_path(item.c_str()),
                                                                 g_object_unref);
    GError* failure = nullptr;
    if (g_file_trash(file.get(), nullptr, &failure) != FALSE) return;
    const std::unique_ptr<GError, decltype(&g_error_free)> error(failure, g_error_free);
    const auto what = quotedName(item) + " konnte nicht in den Papierkorb gelegt werden";
    throw MeetingError::storage(what + (error ? std::string(": ") + error->message : "."));
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
