// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "DriverInterface.h"
#include "support/FileDescriptor.h"
#include "support/GLibOwners.h"
#include "support/OncePerMinute.h"
#include "tesk/ObjectBase.h"

/// Takes boards back that go and come back: a kernel module is loaded again, or a connector comes
/// loose. The files of such a board are new ones, with edges at their defaults, and nobody watches
/// them. Takes single value files back, too, when they are replaced.
///
/// A look at a board is one stat() of its directory. Hints cause a look: events of the directory
/// and of the value files, a call that fails, and the kernel's events of modules and devices, since
/// sysfs has no events for files that vanish. While a board or a file is missing, a timer looks for
/// it twice a second. There is no timer otherwise.
///
/// add() and start() belong to the thread that serves D-Bus, and so do all looks.
class BoardWatch : public tesk::ObjectBase {
 public:
    /// Configures each IO of a driver whose value file is at or below a path, in the order in which
    /// the IOs were configured at the start. Runs on the thread that serves D-Bus.
    using Configure = std::function<void(DriverInterface& driver, const std::string& path)>;

    explicit BoardWatch(Configure configureFiles);
    ~BoardWatch() override;

    /// Takes note of the board of a driver, as it is now. Does nothing if the driver has no board
    /// in sysfs or its board is known. Belongs before the driver's first IO is configured.
    ///
    /// @param driver must outlive the object
    void add(DriverInterface& driver);

    /// Starts to watch the boards, from the thread's default main context. Without a board nothing
    /// is started.
    void start();

    /// Has the boards looked at in a tenth of a second. May be called from any thread, and from a
    /// callback of the notifier.
    void hint();

 private:
    /// The device and the number of a directory.
    using Identity = std::pair<dev_t, ino_t>;

    struct Board {
        DriverInterface* driver;
        std::string path;
        /// What the directory was when its IOs were configured.
        std::optional<Identity> identity;
        /// The text of info_io at the start; nothing where the directory has no such file.
        std::optional<std::string> info;
        bool isLost{false};
        /// Whether the last look at a lost board has found a directory.
        bool isSeen{false};
        /// How many more times the files that could not be written are tried. A board that has come
        /// back may be root's alone until udev gives it to the service.
        int triesLeft{0};
        /// Value files that have been deleted or replaced.
        std::set<std::string> goneFiles{};
    };

    static std::optional<Identity> identityOf(const std::string& path);

    void attachSource();
    void listenToKernel();
    void wake();
    void lookWithin(gint64 microseconds);
    void look();
    std::set<std::string> takeGonePaths();
    void lookAt(Board& board, const std::set<std::string>& gone);
    void lose(Board& board);
    void restore(Board& board, const Identity& found);
    void forgetOldFiles(const Board& board);
    void retry(Board& board);
    bool configureCleanly(const Board& board);
    void restoreFiles(Board& board);
    bool restoreFile(const Board& board, const std::string& file);

    Configure configure;
    std::vector<Board> boards;
    OncePerMinute limit;
    FileDescriptor kernelEvents;
    /// The mark of the kernel's events in the source; null without them.
    gpointer kernelTag{nullptr};
    /// Guards what follows, which the notifier's thread uses, too.
    std::mutex mutex;
    /// Its ready time is the time of the next look. Null before start().
    SourceOwner source;
    /// Where the notifier has reported something gone since the last look.
    std::set<std::string> gonePaths;
};
