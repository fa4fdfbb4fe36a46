#include "Support/CrashingFileManager.h"

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <tuple>
#include <utility>

#include <unistd.h>

#include "MeetingCore/Platform/MeetingError.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore::testing {

namespace fs = std::filesystem;

class CrashingFileManager::Writer final : public FileWriter {
public:
    Writer(CrashingFileManager& disk, fs::path path, std::unique_ptr<FileWriter> file, NodePtr node)
        : disk_(disk), path_(std::move(path)), file_(std::move(file)), node_(std::move(node)) {}

    void write(std::string_view bytes) override {
        try {
            disk_.countOperation(true);
        } catch (const MeetingError&) {
            put(bytes.substr(0, bytes.size() / 2));
            throw;
        }
        put(bytes);
    }
    void flush() override { disk_.flush(path_, node_); }
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
    fs::path path_;
    std::unique_ptr<FileWriter> file_;
    NodePtr node_;
};

CrashingFileManager::CrashingFileManager(fs::path folder)
    : ForwardingFileManager(FileManager::system()), folder_(std::move(folder)), root_(scan(folder_, safe_)) {}

CrashingFileManager::NodePtr CrashingFileManager::scan(const fs::path& path, Tree& tree) {
    auto node = std::make_shared<Node>();
    auto& files = FileManager::system();
    node->directory = files.status(path)->kind == FileStatus::Kind::directory;
    if (node->directory) {
        for (const auto& name : files.list(path)) node->names[name] = scan(path / name, tree);
        tree[node.get()] = node->names;
    } else {
        node->content = node->safe = files.read(path, 0, SIZE_MAX);
    }
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

void CrashingFileManager::plant(const Fault& fault, std::function<void()> acknowledge) {
    fault_ = fault;
    acknowledge_ = std::move(acknowledge);
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
        folder->names[name] = target;
        folder->doubtful = false;
        effect.unflushed.insert(folder.get());
    }
    effects_.push_back(std::move(effect));
}

void CrashingFileManager::flush(const fs::path& path, const NodePtr& node) {
    if (!fault_.leavesOutFlushOf.empty() && path.filename().string().ends_with(fault_.leavesOutFlushOf)) return;
    if (fault_.flushesAfterRename && path.string().find(".partial") != std::string::npos) {
        postponed_.push_back(node);
        return;
    }
    try {
        countOperation(true);
    } catch (const MeetingError&) {
        if (node) node->doubtful = true;
        if (!fault_.believesSecondFlush) throw;
        countOperation(true);
    }
    if (!node || node->doubtful) return;
    node->safe = node->content;
    for (auto& effect : effects_) effect.unflushed.erase(node.get());
}

std::optional<FileStatus> CrashingFileManager::status(const fs::path& path) {
    countOperation(false);
    return ForwardingFileManager::status(path);
}

std::vector<std::string> CrashingFileManager::list(const fs::path& directory) {
    countOperation(false);
    return ForwardingFileManager::list(directory);
}

std::string CrashingFileManager::read(const fs::path& path, std::uint64_t offset, std::size_t maximum) {
    countOperation(false);
    return ForwardingFileManager::read(path, offset, maximum);
}

void CrashingFileManager::createDirectory(const fs::path& path) {
    countOperation(true);
    ForwardingFileManager::createDirectory(path);
    auto node = std::make_shared<Node>();
    node->directory = true;
    record({{find(path.parent_path()), path.filename().string(), std::move(node)}});
}

std::unique_ptr<FileWriter> CrashingFileManager::createFile(const fs::path& path) {
    countOperation(true);
    auto file = ForwardingFileManager::createFile(path);
    auto node = std::make_shared<Node>();
    record({{find(path.parent_path()), path.filename().string(), node}});
    return std::make_unique<Writer>(*this, path, std::move(file), std::move(node));
}

void CrashingFileManager::move(const fs::path& from, const fs::path& to) {
    countOperation(true);
    ForwardingFileManager::move(from, to);
    const auto node = find(from);
    record({{find(from.parent_path()), from.filename().string(), nullptr},
            {find(to.parent_path()), to.filename().string(), node}});
    for (const auto& postponed : std::exchange(postponed_, {})) flush({}, postponed);
    if (fault_.acknowledgesAtRename && acknowledge_) acknowledge_();
}

void CrashingFileManager::remove(const fs::path& path) {
    countOperation(true);
    ForwardingFileManager::remove(path);
    record({{find(path.parent_path()), path.filename().string(), nullptr}});
}

/// Counts through all combinations of choices, the last choice fastest.
class CrashingFileManager::Choices {
public:
    /// One of `count`, the same for the whole of one combination.
    std::size_t choose(std::size_t count) {
        if (next_ == digits_.size()) digits_.emplace_back(0, count);
        return digits_[next_++].first;
    }

    bool advance() {
        next_ = 0;
        while (!digits_.empty() && ++digits_.back().first == digits_.back().second) digits_.pop_back();
        return !digits_.empty();
    }

private:
    std::vector<std::pair<std::size_t, std::size_t>> digits_;  // values and their counts
    std::size_t next_ = 0;
};

void CrashingFileManager::addTo(Image& image, Tree& tree, Node* folder, const std::string& path,
                                Choices& choices) {
    for (const auto& [name, node] : tree[folder]) {
        if (!node) continue;
        if (node->directory) {
            image[path + name + "/"];
            addTo(image, tree, node.get(), path + name + "/", choices);
            continue;
        }
        const auto& [safe, content] = std::tie(node->safe, node->content);
        const std::string contents[] = {safe, content.substr(0, (safe.size() + content.size()) / 2),
                                        safe + std::string(content.size() - safe.size(), '\0'), content};
        image[path + name] = contents[safe == content ? 0 : choices.choose(std::size(contents))];
    }
}

std::size_t CrashingFileManager::forEachDisk(const fs::path& disk, const std::function<void()>& visit) const {
    Choices choices;
    std::set<Image> seen;
    do {
        auto tree = safe_;
        for (const auto& effect : effects_) {
            if (!effect.unflushed.empty() && choices.choose(2) == 0) continue;
            for (const auto& [folder, name, target] : effect.changes) tree[folder.get()][name] = target;
        }
        Image image;
        addTo(image, tree, root_.get(), "", choices);
        if (!seen.insert(image).second) continue;
        if (seen.size() > 4096) throw std::length_error("more possible disks than a test can judge");
        fs::remove_all(disk);
        fs::create_directory(disk);
        for (const auto& [path, content] : image) {
            if (path.ends_with('/')) {
                fs::create_directory(disk / path);
            } else {
                std::ofstream(disk / path, std::ios::binary) << content;
            }
        }
        visit();
    } while (choices.advance());
    return seen.size();
}

void CrashReport::add(const CrashReport& other) {
    stops += other.stops;
    disks += other.disks;
    violations.insert(violations.end(), other.violations.begin(), other.violations.end());
}

namespace {

/// What survives is up to the model, so the folders may lie in memory.
fs::path fastestFolder() {
    const fs::path memory = "/dev/shm";
    return ::access(memory.c_str(), W_OK | X_OK) == 0 ? memory : fs::temp_directory_path();
}

/// One run: the test's start, its act with the crash and what follows it, and the judgement of every disk that
/// may be left.
void runOnce(const CrashTest& test, const std::string& what, CrashReport& report, const CrashTest::Step& act) {
    const TemporaryFolder scratch(fastestFolder());
    const auto folder = scratch.path() / "folder";
    const auto disk = scratch.path() / "disk";
    fs::create_directory(folder);
    if (test.prepare) {
        CrashingFileManager undisturbed(folder);
        test.prepare(undisturbed, folder);
    }
    CrashingFileManager files(folder);
    act(files, folder);
    ++report.stops;
    std::size_t number = 0;
    report.disks += files.forEachDisk(disk, [&] {
        CrashingFileManager left(disk);
        const auto violation = test.check(left, disk);
        const auto where = what + ", disk " + std::to_string(number++) + ": ";
        if (!violation.empty()) report.violations.push_back(where + violation);
    });
}

}  // namespace

CrashReport forEachPowerCut(const CrashTest& test) { return forEachKill(test, nullptr); }

CrashReport forEachKill(const CrashTest& test, const CrashTest::Step& resume) {
    CrashReport report;
    bool crashed = true;
    for (std::size_t stop = 0; crashed; ++stop) {
        runOnce(test, "stop " + std::to_string(stop), report, [&](auto& files, const auto& folder) {
            files.cutPowerAt(stop);
            try {
                test.act(files, folder);
                crashed = false;
            } catch (const PowerCut&) {
            }
            files.repair();
            if (resume) resume(files, folder);
        });
    }
    return report;
}

CrashReport forEachFailure(const CrashTest& test, const CrashTest::Step& resume) {
    CrashReport report;
    for (const auto& [forGood, error] : {std::pair(false, EIO),
                                         {false, ENOSPC},
                                         {false, EMFILE},
                                         {true, EIO},
                                         {true, ENOSPC},
                                         {true, EMFILE}}) {
        bool failed = true;
        for (std::size_t stop = 0; failed; ++stop) {
            const auto what = "operation " + std::to_string(stop) + (forGood ? " for good: " : " once: ");
            runOnce(test, what + systemErrorText(error), report,
                    [&, forGood = forGood, error = error](auto& files, const auto& folder) {
                        files.failAt(stop, error, forGood);
                        test.act(files, folder);
                        failed = files.hasFailed();
                        files.repair();
                        resume(files, folder);
                    });
        }
    }
    return report;
}

}  // namespace meetingcore::testing
