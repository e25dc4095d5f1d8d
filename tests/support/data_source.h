// Fixtures of the tests of the embedded library: a temporary directory and open data sources.
#ifndef PYORV3_TESTS_SUPPORT_DATA_SOURCE_H
#define PYORV3_TESTS_SUPPORT_DATA_SOURCE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "embedded/orv/content/failure.h"
#include "embedded/pqar/parameter_codes.h"
#include "module/interface/orv.h"

namespace testing_support {

using Bytes = std::vector<char>;

inline Bytes contentOf(const std::string& path) {
    Bytes content(static_cast<std::size_t>(std::filesystem::file_size(path)));
    std::ifstream(path, std::ios::binary).read(content.data(), std::ssize(content));
    return content;
}

inline void writeFile(const std::string& path, const Bytes& content) {
    std::ofstream(path, std::ios::binary).write(content.data(), std::ssize(content));
}

// A test with a temporary directory, which the destructor deletes.
class DataSourceTest : public testing::Test {
  public:
    DataSourceTest() {
        std::string name = (std::filesystem::temp_directory_path() / "embedded-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        folder_ = name;
    }
    ~DataSourceTest() override { std::filesystem::remove_all(folder_); }
    DataSourceTest(const DataSourceTest&) = delete;
    DataSourceTest& operator=(const DataSourceTest&) = delete;

  protected:
    [[nodiscard]] std::string file(const std::string& name = "measurement.qar") const {
        return (folder_ / name).string();
    }
    [[nodiscard]] std::ptrdiff_t fileCount() const {
        return std::distance(std::filesystem::directory_iterator(folder_), {});
    }

    // Opens the file like another program and runs the statements.
    using Program = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
    Program program(const std::string& sql) const {
        sqlite3* opened = nullptr;
        EXPECT_EQ(SQLITE_OK, sqlite3_open(file().c_str(), &opened));
        Program other(opened, sqlite3_close);
        execute(other, sql);
        return other;
    }
    static void execute(const Program& program, const std::string& sql) {
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(program.get(), sql.c_str(), nullptr, nullptr, nullptr))
            << sql;
    }

  private:
    std::filesystem::path folder_;
};

// Does the work while files of this process are limited to 4 KiB, as on a full disk.
inline void onFullDisk(const std::function<void()>& work) {
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit{4096, before.rlim_max};
    const sighandler_t handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    work();
    setrlimit(RLIMIT_FSIZE, &before);
    static_cast<void>(std::signal(SIGXFSZ, handler));
}

// Starts a forked process that does the work; its exit status is 0 if the work returns true.
inline pid_t started(const std::function<bool()>& work) {
    EXPECT_EQ(0, fflush(nullptr));
    const pid_t process = fork();
    if (process == 0) {
        alarm(60);
        std::exit(work() ? 0 : 1);
    }
    return process;
}
inline int statusOf(pid_t process) {
    int status = -1;
    EXPECT_EQ(process, waitpid(process, &status, WUNTRACED));
    return status;
}
inline void runElsewhere(const std::function<bool()>& work) {
    EXPECT_EQ(0, statusOf(started(work)));
}

constexpr std::uint32_t reading = 0x1;
constexpr std::uint32_t writing = 0x3;

// Owns a context and wraps the calls that tests make with it.
class DataSource {
  public:
    DataSource() { EXPECT_EQ(0U, SOrvCreateDSC2(nullptr, &context_, 0, 0)); }
    ~DataSource() { SOrvDeleteDSC(context_); }
    DataSource(DataSource&& other) noexcept : context_(std::exchange(other.context_, 0)) {}
    DataSource(const DataSource&) = delete;
    DataSource& operator=(const DataSource&) = delete;
    DataSource& operator=(DataSource&&) = delete;

    static DataSource created(const std::string& path) {
        DataSource source;
        EXPECT_EQ(0U, source.create(path));
        return source;
    }
    static DataSource opened(const std::string& path, std::uint32_t access) {
        DataSource source;
        EXPECT_EQ(0U, source.open(path, access));
        return source;
    }

    [[nodiscard]] OrvContext context() const { return context_; }
    [[nodiscard]] OrvStatus create(const std::string& path) const {
        return SOrvCreateFile(context_, path.c_str(), 1, 65535, 1, 32768);
    }
    [[nodiscard]] OrvStatus open(const std::string& path, std::uint32_t access) const {
        return SOrvOpenDataSource(context_, path.c_str(), 1, access, 0, nullptr);
    }
    [[nodiscard]] OrvStatus close() const { return SOrvCloseDataSource(context_); }
    [[nodiscard]] std::uint32_t lastFailure() const {
        std::uint32_t code = 0;
        std::uint32_t second = 1;
        std::uint32_t third = 1;
        EXPECT_EQ(0, OrvErrorQuery(context_, &code, &second, &third));
        EXPECT_EQ(0U, second + third);
        return code;
    }
    // Returns the failure code of a result; 0 if it is a success.
    [[nodiscard]] std::uint32_t failure(std::int64_t result) const {
        return result == 0 ? 0 : lastFailure();
    }
    [[nodiscard]] std::uint32_t openingState() const {
        std::vector<std::uint32_t> buffer(ORV_STATE_BUFFER_SIZE / sizeof(std::uint32_t));
        EXPECT_EQ(0U, SOrvQueryDSC(context_, 3, buffer.data()));
        return buffer[0];
    }
    [[nodiscard]] std::uint32_t sourceState() const {
        std::uint32_t word = 0;
        EXPECT_EQ(0U, SOrvQueryDataSource(context_, 1, &word));
        return word;
    }

    // value: a number or a string literal.
    template <typename Value>
    [[nodiscard]] OrvStatus put(std::uint32_t code, const Value& value, std::int32_t record = 1,
                                std::int32_t entry = 0) const {
        return SOrvPutParam(context_, code, record, entry, &value, sizeof value);
    }
    // Returns the value; the test fails if it cannot be read.
    template <typename Number>
    [[nodiscard]] Number get(std::uint32_t code, std::uint16_t record = 1,
                             std::uint16_t entry = 0) const {
        Number value{};
        EXPECT_EQ(0U, SOrvGetParam(context_, code, record, entry, &value, sizeof value))
            << std::hex << code;
        return value;
    }
    [[nodiscard]] std::string text(std::uint32_t code, std::uint16_t record = 1) const {
        return get<std::array<char, 256>>(code, record).data();
    }
    [[nodiscard]] OrvStatus putSpectrum(const std::vector<std::int32_t>& channels) const {
        return SOrvPutSpectrum(context_, 1, static_cast<std::uint16_t>(channels.size()),
                               channels.data());
    }
    [[nodiscard]] std::vector<std::int32_t> getSpectrum() const {
        std::vector<std::int32_t> channels(
            static_cast<std::size_t>(get<std::int32_t>(embedded::QAR_L_CHANNELS)), -1);
        EXPECT_EQ(0U, SOrvGetSpectrum(context_, 1, static_cast<std::uint16_t>(channels.size()), 0,
                                      channels.data()));
        return channels;
    }

    [[nodiscard]] int recordCount(std::uint16_t classCode) const {
        std::uint16_t count = 0;
        return SOrvClassCount(context_, classCode, &count) == 0 ? count : -1;
    }

  private:
    OrvContext context_ = 0;
};

}  // namespace testing_support

#endif
