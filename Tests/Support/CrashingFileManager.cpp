#include "Support/CrashingFileManager.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include <unistd.h>

#include "MeetingCore/Platform/MeetingError.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore::testing {

namespace fs = std::filesystem;

class CrashingFileManager::Writer final : public FileWriter {
public:
    Writer(CrashingFileManager& disk, std::unique_ptr<FileWriter> file, NodePtr node)
        : disk_(disk), file_(std::move(file)), node_(std::move(node)) {}

    void write(std::string_view bytes) override {
        try {
            disk_.countOperation(true);
        } catch (const MeetingError&) {
            put(bytes.substr(0, bytes.size() / 2));
            throw;
        }
        put(bytes);
    }

    void flush() override {
        try {
            disk_.countOperation(true);
        } catch (const MeetingError&) {
            node_->doubtful = true;
            throw;
        }
        if (!node_->doubtful) node_->safe = node_->content;
    }

    void close() override {
        disk_.countOperation(true);
        file_->close();
    }

private:
    void put(std::string_view bytes) {
        file_->write(bytes);
        node_->content += bytes;
    }

    CrashingFileManager& disk_;
    std::unique_ptr<FileWriter> file_;
    NodePtr node_;
};

CrashingFileManager::CrashingFileManager(fs::path folder)
    : folder_(std::move(folder)), root_(scan(folder_, safe_)) {}

CrashingFileManager::NodePtr CrashingFileManager::scan(const fs::path& path, Tree& tree) {
    auto node = std::make_shared<Node>();
    auto& files = FileManager::system();
    node->directory = files.status(path)->kind == FileStatus::Kind::directory;
    if (!node->directory) {
        node->content = node->safe = files.read(path, 0, SIZE_MAX);
        return node;
    }
    for (const auto& name : files.list(path)) node->names[name] = scan(path / name, tree);
    tree[node.get()] = node->names;
    return node;
}

CrashingFileManager::NodePtr CrashingFileManager::find(const fs::path& path) const {
    const auto relative = path.lexically_relative(folder_);
    if (relative.empty() || *relative.begin() == "..") return nullptr;
    auto node = root_;
    for (const auto& name : relative) {
        if (name != ".") node = node->names.at(name.string());
    }
    return node;
}

void CrashingFileManager::cutPowerAt(std::size_t change) {
    cutAt_ = change;
    changes_ = 0;
}

void CrashingFileManager::failAt(std::size_t operation, int error, bool forGood) {
    failAt_ = operation;
    operations_ = 0;
    error_ = error;
    forGood_ = forGood;
}

void CrashingFileManager::repair() {
    cutAt_.reset();
    failAt_.reset();
}

void CrashingFileManager::countOperation(bool change) {
    const auto operation = operations_++;
    if (change && cutAt_ == changes_++) throw PowerCut{};
    if (failAt_ && (operation == *failAt_ || (forGood_ && operation > *failAt_))) {
        throw MeetingError::storage(systemErrorText(error_));
    }
}

void CrashingFileManager::record(std::vector<NameChange> changes) {
    Effect effect{std::move(changes), {}};
    for (const auto& [folder, name, target] : effect.changes) {
        if (target) {
            folder->names[name] = target;
        } else {
            folder->names.erase(name);
        }
        folder->doubtful = false;
        effect.unflushed.insert(folder.get());
    }
    effects_.push_back(std::move(effect));
}

std::optional<FileStatus> CrashingFileManager::status(const fs::path& path) {
    countOperation(false);
    return files_.status(path);
}

std::vector<std::string> CrashingFileManager::list(const fs::path& directory) {
    countOperation(false);
    return files_.list(directory);
}

std::string CrashingFileManager::read(const fs::path& path, std::uint64_t offset, std::size_t maximum) {
    countOperation(false);
    return files_.read(path, offset, maximum);
}

void CrashingFileManager::createDirectory(const fs::path& path) {
    countOperation(true);
    files_.createDirectory(path);
    auto node = std::make_shared<Node>();
    node->directory = true;
    record({{find(path.parent_path()), path.filename().string(), std::move(node)}});
}

std::unique_ptr<FileWriter> CrashingFileManager::createFile(const fs::path& path) {
    countOperation(true);
    auto file = files_.createFile(path);
    auto node = std::make_shared<Node>();
    record({{find(path.parent_path()), path.filename().string(), node}});
    return std::make_unique<Writer>(*this, std::move(file), std::move(node));
}

void CrashingFileManager::move(const fs::path& from, const fs::path& to) {
    countOperation(true);
    files_.move(from, to);
    const auto node = find(from);
    record({{find(from.parent_path()), from.filename().string(), nullptr},
            {find(to.parent_path()), to.filename().string(), node}});
}

void CrashingFileManager::remove(const fs::path& path) {
    countOperation(true);
    files_.remove(path);
    record({{find(path.parent_path()), path.filename().string(), nullptr}});
}

void CrashingFileManager::flushDirectory(const fs::path& path) {
    const auto node = find(path);
    try {
        countOperation(true);
    } catch (const MeetingError&) {
        if (node) node->doubtful = true;
        throw;
    }
    if (!node || node->doubtful) return;
    for (auto& effect : effects_) effect.unflushed.erase(node.get());
}

std::vector<std::string> CrashingFileManager::possibleContents(const Node& file) {
    std::vector<std::string> contents{file.safe};
    if (file.safe == file.content) return contents;
    contents.push_back(file.content.substr(0, (file.safe.size() + file.content.size()) / 2));
    contents.push_back(file.safe + std::string(file.content.size() - file.safe.size(), '\0'));
    contents.push_back(file.content);
    return contents;
}

/// Counts through all combinations of choices, the last choice fastest.
class CrashingFileManager::Choices {
public:
    /// One of `count`, the same for the whole of one combination.
    std::size_t choose(std::size_t count) {
        if (next_ == digits_.size()) digits_.push_back({0, count});
        return digits_[next_++].value;
    }

    bool advance() {
        next_ = 0;
        while (!digits_.empty() && ++digits_.back().value == digits_.back().count) digits_.pop_back();
        return !digits_.empty();
    }

private:
    struct Digit {
        std::size_t value, count;
    };
    std::vector<Digit> digits_;
    std::size_t next_ = 0;
};

CrashingFileManager::Tree CrashingFileManager::possibleNames(Choices& choices) const {
    auto tree = safe_;
    for (const auto& effect : effects_) {
        if (!effect.unflushed.empty() && choices.choose(2) == 0) continue;
        for (const auto& [folder, name, target] : effect.changes) {
            if (target) {
                tree[folder.get()][name] = target;
            } else {
                tree[folder.get()].erase(name);
            }
        }
    }
    return tree;
}

void CrashingFileManager::addTo(Image& image, Tree& tree, Node* folder, const std::string& path,
                                Choices& choices) {
    for (const auto& [name, node] : tree[folder]) {
        if (node->directory) {
            image[path + name + "/"];
            addTo(image, tree, node.get(), path + name + "/", choices);
        } else {
            const auto contents = possibleContents(*node);
            image[path + name] = contents[contents.size() > 1 ? choices.choose(contents.size()) : 0];
        }
    }
}

std::size_t CrashingFileManager::forEachDisk(const fs::path& disk, const std::function<void()>& visit,
                                             std::size_t maximum) const {
    Choices choices;
    std::set<Image> seen;
    do {
        auto tree = possibleNames(choices);
        Image image;
        addTo(image, tree, root_.get(), "", choices);
        if (!seen.insert(image).second) continue;
        if (seen.size() > maximum) throw std::length_error("more possible disks than the test allows for");
        fs::remove_all(disk);
        files_.createDirectory(disk);
        for (const auto& [path, content] : image) {
            if (path.ends_with('/')) {
                files_.createDirectory(disk / path.substr(0, path.size() - 1));
            } else {
                files_.createFile(disk / path)->write(content);
            }
        }
        visit();
    } while (choices.advance());
    return seen.size();
}

CrashReport& CrashReport::operator+=(const CrashReport& other) {
    stops += other.stops;
    disks += other.disks;
    violations.insert(violations.end(), other.violations.begin(), other.violations.end());
    return *this;
}

namespace {

/// What survives is up to the model, so the folders may lie in memory.
fs::path fastestFolder() {
    const fs::path memory = "/dev/shm";
    return ::access(memory.c_str(), W_OK | X_OK) == 0 ? memory : fs::temp_directory_path();
}

/// One run: the test's start, its act under the crash that `arm` sets up, `resume`, and the judgement of every
/// disk that may be left. Returns whether the crash came.
bool runOnce(const CrashTest& test, const std::string& what, CrashReport& report,
             const std::function<void(CrashingFileManager&)>& arm,
             const std::function<bool(CrashingFileManager&, const fs::path&)>& actAndResume) {
    const TemporaryFolder scratch(fastestFolder());
    const auto folder = scratch.path() / "folder";
    const auto disk = scratch.path() / "disk";
    fs::create_directory(folder);
    if (test.prepare) {
        CrashingFileManager undisturbed(folder);
        test.prepare(undisturbed, folder);
    }
    CrashingFileManager files(folder);
    arm(files);
    const bool crashed = actAndResume(files, folder);
    ++report.stops;
    std::size_t number = 0;
    report.disks += files.forEachDisk(disk, [&] {
        CrashingFileManager left(disk);
        const auto violation = test.check(left, disk);
        if (!violation.empty()) {
            report.violations.push_back(what + ", disk " + std::to_string(number) + ": " + violation);
        }
        ++number;
    });
    return crashed;
}

bool cutShort(const CrashTest& test, CrashingFileManager& files, const fs::path& folder) {
    try {
        test.act(files, folder);
        return false;
    } catch (const PowerCut&) {
        return true;
    }
}

}  // namespace

CrashReport forEachPowerCut(const CrashTest& test) { return forEachKill(test, nullptr); }

CrashReport forEachKill(const CrashTest& test, const CrashTest::Step& resume) {
    CrashReport report;
    for (std::size_t stop = 0;; ++stop) {
        const auto arm = [&](CrashingFileManager& files) { files.cutPowerAt(stop); };
        const auto run = [&](CrashingFileManager& files, const fs::path& folder) {
            const bool crashed = cutShort(test, files, folder);
            files.repair();
            if (resume) resume(files, folder);
            return crashed;
        };
        if (!runOnce(test, "stop " + std::to_string(stop), report, arm, run)) return report;
    }
}

CrashReport forEachFailure(const CrashTest& test, const CrashTest::Step& resume) {
    CrashReport report;
    for (const bool forGood : {false, true}) {
        for (const int error : {EIO, ENOSPC, EMFILE}) {
            bool failed = true;
            for (std::size_t stop = 0; failed; ++stop) {
                const auto arm = [&](CrashingFileManager& files) { files.failAt(stop, error, forGood); };
                const auto run = [&](CrashingFileManager& files, const fs::path& folder) {
                    test.act(files, folder);
                    const bool reached = files.hasFailed();
                    files.repair();
                    resume(files, folder);
                    return reached;
                };
                const auto what = "operation " + std::to_string(stop) + (forGood ? " for good: " : " once: ") +
                                  systemErrorText(error);
                failed = runOnce(test, what, report, arm, run);
            }
        }
    }
    return report;
}

}  // namespace meetingcore::testing
