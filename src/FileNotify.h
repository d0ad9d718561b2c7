// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/FileDescriptor.h"
#include "tesk/ObjectBase.h"

/// Watches value files (through inotify) and device descriptors (through poll) and calls back when
/// they change. One worker thread watches all of them and sleeps until something happens.
///
/// The kernel drops changes when too many wait to be read (fs.inotify.max_queued_events). The
/// worker then calls back once for every file, so that no change stays untold. A callback must look
/// at the file: it may be called for a file that did not change.
///
/// Callbacks run on the worker thread while the table of watches is locked: they must not enable or
/// disable notifications. An exception of a callback ends the process.
class FileNotify : public tesk::ObjectBase {
 public:
    /// The one instance of the process, made by the first call and never destroyed. The first call
    /// must come before there are other threads: a call that races it may get a null pointer.
    static FileNotify* getInstance();

    /// Whether the worker of the one instance has woken since the last call. The call wakes the
    /// worker. A worker that hangs in a callback does not wake. True while there is no worker.
    static bool workerAnswers();

    /// Starts the worker.
    ///
    /// @throws tesk::InputOutputException "error initializing inotify" or "error initializing
    ///         pipe"; the log tells the reason
    FileNotify();

    /// Ends the worker and waits for it.
    ~FileNotify() override;

    /// Calls back at every modification of a file, and once when the kernel has dropped changes:
    /// the file may have changed or not. A second call for the same file replaces the callback. May
    /// be called from any thread but from a callback.
    ///
    /// @param path an existing file
    /// @param callback called with the key
    /// @return the key of the watch, the same for the same file
    /// @throws tesk::InputOutputException "error enabling notification for file '%s': %s"
    int enableNotifications(const std::string& path, std::function<void(int)> callback);

    /// Calls back whenever a descriptor is readable and nothing else. The watch of a descriptor
    /// that reports an error or a hang-up ends; a warning says so.
    ///
    /// @param fd borrowed; must stay open as long as it is watched
    /// @param callback called with the descriptor
    /// @return the key of the watch, which is `fd`
    int enableNotifications(int fd, std::function<void(int)> callback);

    /// Ends a watch. For a file this takes a tenth of a second and logs one line at error. A last
    /// callback may run until this returns.
    ///
    /// @throws tesk::NotFoundException "file reference not found"; the log tells the key
    void disableNotifications(int key);

    /// Sets what is called when a watched file has been replaced or deleted, and when a watched
    /// directory has been moved, replaced or deleted. The call comes after the callback of the
    /// file. While there is a listener, the watch of a file that is replaced goes over to the new
    /// file under another key, and the watch of a file that is deleted ends. May be called from any
    /// thread but from a callback.
    ///
    /// @param listener called with the path, on the worker thread, under the rules of a callback;
    ///        empty to hear nothing any longer
    void setGoneListener(std::function<void(const std::string& path)> listener);

    /// Tells the listener when a directory is moved or deleted. What happens in the directory is
    /// not watched. May be called from any thread but from a callback.
    ///
    /// @return false if the kernel refuses the watch
    bool watchDirectory(const std::string& path);

    /// Ends all watches at and below a path at once. No callback of theirs is called any more, and
    /// the listener hears nothing of their files. Nothing is logged. May be called from any thread
    /// but from a callback.
    void forget(const std::string& path);

    /// Calls back for each watched file at and below a path, in the order in which the watches were
    /// enabled, on the calling thread. May be called from any thread but from a callback.
    void callBack(const std::string& path);

    /// What the worker thread runs.
    void workerFunction();

 private:
    enum class State : std::uint8_t {
        WATCHED,
        ENDING,    ///< disableNotifications() is at work; the callback is still called.
        FORGOTTEN  ///< Waits for the kernel's last record.
    };

    /// One watch, under the inotify watch descriptor or the polled descriptor as its key.
    struct FileWatch {
        std::string fileName;
        std::function<void(int)> callback;
        bool isFile{false};
        bool isDirectory{false};
        State state{State::WATCHED};
        /// Whether the present poll set holds this watch. The set may instead hold an earlier watch
        /// of the same number, of another descriptor.
        bool isPolled{false};
        bool isBroken{false};
    };

    using Watches = std::map<int, FileWatch>;

    void wakeWorker() const;
    int addInotifyWatch(const std::string& path, bool isDirectory) const;
    std::vector<pollfd> pollSet();
    bool visit(const pollfd& entry);
    bool readInotify();
    void serve(int key, std::uint32_t events);
    void followFile(Watches::iterator watch);
    void callBackEveryFile();
    void visitAfterOverflow(Watches::iterator watch);
    template <typename Visit>
    void visitEveryWatch(const Visit& visitWatch);
    void visitDescriptor(const pollfd& entry);
    void removeInotifyWatch(int key, const std::string& fileName);

    std::thread workerThread;
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> hasAnswered{true};
    FileDescriptor inotify;
    /// The read end and the write end.
    std::array<FileDescriptor, 2> wakePipe;
    std::mutex watchesMutex;
    Watches watches;
    std::function<void(const std::string& path)> goneListener;
    std::size_t fdWatchCount{0};
};
