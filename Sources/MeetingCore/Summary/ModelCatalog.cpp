#include "MeetingCore/Summary/ModelCatalog.h"

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>

#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Platform/FileDescriptor.h"
#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/JSONReader.h"

namespace meetingcore {

template std::vector<LocalModel> json::decode(std::string_view, const std::string&);

namespace {

constexpr std::size_t readSize = 4'194'304;

MeetingError unreadable(const std::filesystem::path& path) {
    return MeetingError::storage(quotedName(path) + " kann nicht gelesen werden: " + systemErrorText(errno));
}

std::string digest(const FileDescriptor& file, const std::filesystem::path& path) {
    SHA256 sha;
    std::string buffer(readSize, '\0');
    while (true) {
        const auto count = ::read(file.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw unreadable(path);
        if (count == 0) return sha.hex();
        sha.update({buffer.data(), static_cast<std::size_t>(count)});
    }
}

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

VerifiedModel::Identity VerifiedModel::identityOf(int descriptor) {
    struct stat info {};
    if (descriptor < 0 || ::fstat(descriptor, &info) != 0) return {};
#ifdef __APPLE__
    const auto modified = info.st_mtimespec;
    const auto changed = info.st_ctimespec;
#else
    const auto modified = info.st_mtim;
    const auto changed = info.st_ctim;
#endif
    return {static_cast<std::uint64_t>(info.st_dev), info.st_ino, info.st_size, nanoseconds(modified),
            nanoseconds(changed)};
}

void VerifiedModel::requireUnchanged() const {
    // Without O_NONBLOCK a pipe under the file's name would hold the opener forever.
    if (identityOf(FileDescriptor::open(path_, O_RDONLY | O_NONBLOCK).get()) != identity_) {
        throw MeetingError::invalidData("Die Modelldatei " + path_.filename().string() +
                                        " wurde während der Prüfung ausgetauscht. Bitte erneut starten.");
    }
}

const ModelCatalog& ModelCatalog::builtIn() {
    static const ModelCatalog catalog({
        {"nemotron-asr", "nemotron-3.5-asr-streaming-0.6b.q8_0.gguf", 742090464,
         "3fc991d3badad7277c11030a7519832cddaf2057aafed6d4b25147e953a070b1"},
        {"asr", "parakeet-tdt-0.6b-v3.q8_0.gguf", 713975456,
         "e3880d0aaaaf2c308ea2c35016b2b895c423eb3fda924c1b463d1c19b7f4d32e"},
        {"diarization", "Nemotron-3-Diarization.q8_0.gguf", 107012128,
         "08456d9e22cd9a323c0364d98375f3746d6e68507ebb705cd46438c534c7a3a1"},
        {"summary", "Qwen3-4B-Q4_K_M.gguf", 2497280256,
         "7485fe6f11af29433bc51cab58009521f205840f5b4ae3a32fa7f92e8534fdf5"},
    });
    return catalog;
}

const LocalModel* ModelCatalog::find(std::string_view id) const {
    const auto found =
        std::find_if(models_.begin(), models_.end(), [&](const auto& model) { return model.id == id; });
    return found == models_.end() ? nullptr : &*found;
}

bool ModelCatalog::present(std::string_view id, const std::filesystem::path& directory) const {
    const auto* const model = find(id);
    if (model == nullptr) return false;
    struct stat info {};
    return ::stat((directory / model->filename).c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           info.st_size == model->bytes;
}

VerifiedModel ModelCatalog::verify(std::string_view id, const std::filesystem::path& directory) const {
    const auto* const model = find(id);
    if (model == nullptr) {
        throw MeetingError::notConfigured("Das Modell „" + std::string(id) +
                                          "“ ist nicht im Modellkatalog verzeichnet.");
    }
    if (!present(id, directory)) {
        throw MeetingError::notConfigured(model->filename + " fehlt oder ist unvollständig.");
    }
    const auto path = directory / model->filename;
    const auto file = FileDescriptor::open(path, O_RDONLY);
    if (!file) throw unreadable(path);
    const auto identity = VerifiedModel::identityOf(file.get());
    if (digest(file, path) != model->sha256) {
        throw MeetingError::invalidData("Die Prüfsumme von " + model->filename +
                                        " stimmt nicht. Modell erneut laden.");
    }
    return {path, identity};
}

std::string ModelCatalog::fingerprint(std::string_view data) { return SHA256::hex(data); }

}  // namespace meetingcore
