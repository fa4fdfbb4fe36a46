#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Support/ForwardingFileManager.h"

namespace meetingcore::testing {

/// Thrown where the power goes. No std::exception: nothing that tidies up after an error runs after a power
/// cut.
struct PowerCut {};

/// A mistake in the protocol of flushes and renames, planted between the program and the disk.
struct Fault {
    std::string name;
    std::string leavesOutFlushOf{};  ///< the end of the file's or folder's name
    bool flushesAfterRename = false;
    bool believesSecondFlush = false;
    bool acknowledgesAtRename = false;
};

/// Works on a real folder and knows what of it a power cut could take away.
///
/// What the processes see is the folder itself. Beside it stands a model of the disk: a file's content is safe
/// after the file's flush, a name (created, renamed, removed) after its folder's flush and not before. A flush
/// that fails takes what it should have written for clean: the next flush of the same file saves nothing of it,
/// the next flush of the same folder only if the folder was changed in between.
class CrashingFileManager final : public ForwardingFileManager {
public:
    /// All that is in the folder counts as safe. Paths outside of it are passed on without a model.
    explicit CrashingFileManager(std::filesystem::path folder);

    /// From now on the program makes this mistake. What it acknowledges, it does by calling `acknowledge`.
    void plant(const Fault& fault, std::function<void()> acknowledge = nullptr);
    /// The power goes in place of change number `change`, counted from 0 and from this call.
    void cutPowerAt(std::size_t change);
    /// Operation number `operation`, counted from 0 and from this call, fails with the system's error, and all
    /// later ones with it if `forGood`. A failing write has written half.
    void failAt(std::size_t operation, int error, bool forGood);
    bool hasFailed() const { return failAt_ && operations_ > *failAt_; }
    bool failsForGood() const { return forGood_; }  ///< still told after the repair
    /// From now on nothing goes wrong any more.
    void repair();

    /// Builds, one after the other in the folder `disk`, every disk that a power cut could leave now, and calls
    /// `visit` for each: any set of unflushed names, and unflushed contents that are missing, half, zeros or
    /// complete. Returns how many different ones there were.
    std::size_t forEachDisk(const std::filesystem::path& disk, const std::function<void()>& visit) const;

    std::optional<FileStatus> status(const std::filesystem::path& path) override;
    std::vector<std::string> list(const std::filesystem::path& directory) override;
    std::string read(const std::filesystem::path& path, std::uint64_t offset, std::size_t maximum) override;
    void createDirectory(const std::filesystem::path& path) override;
    std::unique_ptr<FileWriter> createFile(const std::filesystem::path& path) override;
    void move(const std::filesystem::path& from, const std::filesystem::path& to) override;
    void remove(const std::filesystem::path& path) override;
    void flushDirectory(const std::filesystem::path& path) override { flush(path, find(path)); }

private:
    class Writer;
    class Choices;
    struct Node;
    using NodePtr = std::shared_ptr<Node>;
    using Names = std::map<std::string, NodePtr>;  // a name that points to nothing is gone
    struct Node {
        bool directory = false;
        bool doubtful = false;      // a flush failed
        std::string content, safe;  // of files: what is seen, and what was flushed
        Names names;                // of folders: what is seen
    };
    struct NameChange {
        NodePtr folder;
        std::string name;
        NodePtr target;
    };
    struct Effect {
        std::vector<NameChange> changes;  // happen together
        std::set<Node*> unflushed;        // the folders whose flush it waits for
    };
    using Tree = std::map<Node*, Names>;               // the safe names, on which the effects build
    using Image = std::map<std::string, std::string>;  // paths and contents; folders end with a slash

    static NodePtr scan(const std::filesystem::path& path, Tree& tree);
    NodePtr find(const std::filesystem::path& path) const;
    void record(std::vector<NameChange> changes);
    void countOperation(bool change);
    void flush(const std::filesystem::path& path, const NodePtr& node);
    static void addTo(Image& image, Tree& tree, Node* folder, const std::string& path, Choices& choices);

    std::filesystem::path folder_;
    Tree safe_;
    NodePtr root_;
    std::vector<Effect> effects_;  // since the start, in their order

    Fault fault_;
    std::function<void()> acknowledge_;
    std::vector<NodePtr> postponed_;  // flushes

    std::size_t operations_ = 0, changes_ = 0;
    std::optional<std::size_t> cutAt_, failAt_;
    int error_ = 0;
    bool forGood_ = false;
};

/// What a crash test did and found.
struct CrashReport {
    std::size_t stops = 0, disks = 0;
    std::vector<std::string> violations;

    void add(const CrashReport& other);
};

/// One crash test: `prepare` makes the undisturbed start (all of it safe), `act` is what the crash interrupts,
/// `check` judges what is left and returns what is wrong with it, or an empty text. All work on the folder that
/// they are given; `act` runs once for each stop, so it begins by forgetting what it remembered.
struct CrashTest {
    using Step = std::function<void(CrashingFileManager& files, const std::filesystem::path& folder)>;
    using Check = std::function<std::string(CrashingFileManager& files, const std::filesystem::path& folder)>;

    Step prepare;
    Step act;
    Check check;
};

/// The power goes at every change of `act` in turn, and after the last; `check` sees every disk that may be
/// left.
CrashReport forEachPowerCut(const CrashTest& test);

/// The process is killed at every change of `act` in turn; `resume` is the next process, which sees all that
/// was done; then the power goes, and `check` sees every disk that may be left.
CrashReport forEachKill(const CrashTest& test, const CrashTest::Step& resume);

/// Every operation of `act` fails in turn with each of the usual errors, once and for good. `act` catches the
/// error as the program would; `resume` tries again on the repaired disk; then the power goes, and `check` sees
/// every disk that may be left.
CrashReport forEachFailure(const CrashTest& test, const CrashTest::Step& resume);

}  // namespace meetingcore::testing
