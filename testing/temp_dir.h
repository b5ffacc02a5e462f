// Temporary directories and small file helpers of the tests and benchmarks.
// Every directory lives under /tmp/tikron-tests/ as <pid>.<random> and is
// removed with its files when its object goes, also when the test failed.
// A process killed before it could clean up is swept by the next one: the
// first directory made in a process removes those of processes that are gone.
#pragma once

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

namespace testing_support {

inline const char* TempRoot() { return "/tmp/tikron-tests"; }

// Removes the directories of processes that no longer run.
inline void SweepStaleDirs() {
    namespace fs = std::filesystem;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(TempRoot(), ec)) {
        const std::string name = e.path().filename().string();
        const long pid = std::strtol(name.c_str(), nullptr, 10);
        if (pid <= 0 || pid == static_cast<long>(getpid())) continue;
        if (kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) fs::remove_all(e.path(), ec);
    }
}

class TempDir {
public:
    TempDir() {
        static std::once_flag swept;
        std::error_code ec;
        std::filesystem::create_directories(TempRoot(), ec);
        std::call_once(swept, SweepStaleDirs);
        std::string tmpl = std::string(TempRoot()) + "/" + std::to_string(getpid()) + ".XXXXXX";
        if (mkdtemp(tmpl.data()) == nullptr) throw std::runtime_error("cannot make a directory under /tmp/tikron-tests");
        m_path = tmpl;
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    std::string File(const std::string& name) const { return *this / name; }

private:
    std::string m_path;
};

// A temporary directory made the working directory between Enter() and
// Leave() (or the object's end): snapshot files and logs of a plug-in land
// there.
class TempWorkDir {
public:
    bool Enter() {
        Leave();
        char old[4096];
        if (getcwd(old, sizeof old) == nullptr) return false;
        m_dir = std::make_unique<TempDir>();
        m_old = old;
        return chdir(m_dir->path().c_str()) == 0;
    }
    void Leave() {
        if (!m_old.empty() && chdir(m_old.c_str()) != 0) std::perror("chdir back");
        m_old.clear();
        m_dir.reset();
    }
    ~TempWorkDir() { Leave(); }
    const std::string& Path() const { return m_dir->path(); }

private:
    std::unique_ptr<TempDir> m_dir;
    std::string m_old;
};

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline long FileSize(const std::string& path) {
    std::error_code ec;
    const auto n = std::filesystem::file_size(path, ec);
    return ec ? -1 : static_cast<long>(n);
}

// Polls cond every 5 ms until it holds or ms milliseconds have passed.
inline bool WaitUntil(const std::function<bool()>& cond, int ms = 3000) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < end) {
        if (cond()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return cond();
}

}  // namespace testing_support
