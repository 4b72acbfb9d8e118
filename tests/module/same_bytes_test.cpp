// SPDX-License-Identifier: MIT
// The user, the umask, the environment and the locale of the process do not affect an archive.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <clocale>
#include <cstdlib>
#include <ctime>
#include <cwchar>
#include <filesystem>
#include <locale>
#include <optional>
#include <stdexcept>
#include <string>

#include "tests/support/module_calls.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/recording_host.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tree.h"

// The C library's newlocale leaks the list of directories that it builds from LOCPATH.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:argz_add_sep";
}

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

/// Sizes with more than three digits, decimal and octal, which a locale might group. Names that a
/// locale might sort differently or treat as invalid text.
const Tree tree = {{"Beta", std::string(1234567, 'b')},
                   {"alpha", std::string(70000, 'a')},
                   {"\xC3\xA4pfel", "umlaut"},
                   {"\xFF", "no character"},
                   {"sub/Zeta", ""},
                   {"sub/eta", "e"}};

class SameBytes : public ::testing::TestWithParam<Container> {
protected:
    SameBytes() {
        writeTree(root_ / "source", tree);
        // Everybody may read the source, and write archives beside it.
        fs::permissions(root_.path(), fs::perms::all);
        for (const auto& entry : fs::recursive_directory_iterator(root_ / "source"))
            fs::permissions(entry.path(), fs::perms::others_read | fs::perms::others_exec,
                            fs::perm_options::add);
        expected_ = archive("expected");
    }

    /// Makes an archive of the source and returns its bytes.
    std::string archive(const char* name) const {
        RecordingHost host;
        makeArchive(GetParam(), (root_ / "source").c_str(), (root_ / name).c_str(), true);
        if (host.pendingMessage) throw std::runtime_error(*host.pendingMessage);
        return readFile(root_ / name);
    }

    TempDir root_;
    std::string expected_;
};

/// Sets or unsets an environment variable for as long as it lives.
class Variable {
public:
    Variable(const char* name, const char* value) : name_(name) {
        if (const char* before = std::getenv(name)) before_ = before;
        set(value);
    }
    ~Variable() { set(before_ ? before_->c_str() : nullptr); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    void set(const char* value) {
        if (value == nullptr) {
            unsetenv(name_);
        } else {
            setenv(name_, value, 1);
        }
    }

    const char* name_;
    std::optional<std::string> before_;
};

/// Sets the global locale of C and C++ for as long as it lives.
class GlobalLocale {
public:
    explicit GlobalLocale(const std::locale& locale) : before_(std::locale::global(locale)) {}
    ~GlobalLocale() {
        std::locale::global(before_);
        std::setlocale(LC_ALL, "C");
    }
    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;

private:
    std::locale before_;
};

/// Locales of several countries, and one of no country, compiled for this machine. While LOCPATH
/// names their directory, they can be used as if they were installed.
class CompiledLocales {
public:
    CompiledLocales() {
        compile("C", "UTF-8", "C.UTF-8");
        compile("de_CH", "UTF-8", "de_CH.UTF-8");
        compile("en_US", "UTF-8", "en_US.UTF-8");
        compile("tr_TR", "ISO-8859-9", "tr_TR");
    }

    const char* path() const { return directory_.path().c_str(); }

private:
    void compile(const char* input, const char* charset, const char* name) {
        const bool bigEndian = std::endian::native == std::endian::big;
        std::string command = "localedef --no-archive";
        command += bigEndian ? " --big-endian" : " --little-endian";
        command += std::string(" -i ") + input + " -f " + charset + ' ';
        command += (directory_ / name).native();
        if (std::system(command.c_str()) != 0) throw std::runtime_error(command + " failed");
    }

    TempDir directory_;
};

/// Writes 1234 as "1.2.3.4".
struct GroupedDigits : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\1"; }
};

/// Writes the complement of each byte to files, and restores it when reading.
class Complement : public std::codecvt<char, char, std::mbstate_t> {
protected:
    result do_out(std::mbstate_t& /*state*/, const char* from, const char* fromEnd,
                  const char*& fromNext, char* to, char* toEnd, char*& toNext) const override {
        return convert(from, fromEnd, fromNext, to, toEnd, toNext);
    }
    result do_in(std::mbstate_t& /*state*/, const char* from, const char* fromEnd,
                 const char*& fromNext, char* to, char* toEnd, char*& toNext) const override {
        return convert(from, fromEnd, fromNext, to, toEnd, toNext);
    }
    int do_length(std::mbstate_t& /*state*/, const char* from, const char* end,
                  std::size_t max) const override {
        return static_cast<int>(std::min(static_cast<std::size_t>(end - from), max));
    }
    int do_encoding() const noexcept override { return 1; }
    int do_max_length() const noexcept override { return 1; }
    bool do_always_noconv() const noexcept override { return false; }

private:
    static result convert(const char* from, const char* fromEnd, const char*& fromNext, char* to,
                          char* toEnd, char*& toNext) {
        const std::ptrdiff_t count = std::min(fromEnd - from, toEnd - to);
        fromNext = from + count;
        toNext = std::transform(from, fromNext, to, [](char byte) { return char(~byte); });
        return fromNext == fromEnd ? ok : partial;
    }
};

std::locale complementing() {
    return std::locale(std::locale::classic(), new Complement);
}

}  // namespace

TEST_P(SameBytes, UmaskChangesNothing) {
    for (const mode_t mask : {0000U, 0077U, 0022U, 0177U}) {
        const mode_t before = umask(mask);
        const std::string bytes = archive(("umask-" + std::to_string(mask)).c_str());
        umask(before);
        EXPECT_TRUE(bytes == expected_) << std::oct << mask;
    }
}

TEST_P(SameBytes, UserChangesNothing) {
    const std::string bytes = asOrdinaryUser([&] { return archive("as-ordinary-user"); });
    EXPECT_TRUE(bytes == expected_) << bytes.substr(0, 100);
}

TEST_P(SameBytes, TimeZoneAndLanguageChangeNothing) {
    const CompiledLocales locales;
    const Variable path("LOCPATH", locales.path());
    for (const char* const zone : {"UTC0", "Pacific/Kiritimati", "<-12>12", ":/nowhere"}) {
        for (const char* const language : {"C", "POSIX", "C.UTF-8", "de_CH.UTF-8"}) {
            for (const char* const all : {"", "C", "en_US.UTF-8", "tr_TR"}) {
                SCOPED_TRACE(std::string(zone) + ' ' + language + ' ' + all);
                const Variable tz("TZ", zone);
                const Variable lang("LANG", language);
                const Variable lcAll("LC_ALL", all);
                tzset();
                ASSERT_NE(std::setlocale(LC_ALL, ""), nullptr);
                const GlobalLocale global(std::locale(""));
                EXPECT_TRUE(archive("elsewhere") == expected_);
            }
        }
    }
    tzset();
}

// Shows that the locales of the test above have an effect.
TEST(CompiledLocales, GroupDigitsAndSortByLanguage) {
    const CompiledLocales locales;
    const Variable path("LOCPATH", locales.path());
    const std::locale locale("en_US.UTF-8");
    EXPECT_EQ(std::use_facet<std::numpunct<char>>(locale).grouping(), "\3\3");
    EXPECT_TRUE(locale(std::string("alpha"), std::string("Beta")));
    EXPECT_FALSE(std::locale::classic()(std::string("alpha"), std::string("Beta")));
}

TEST_P(SameBytes, LocaleThatGroupsDigitsChangesNothing) {
    const GlobalLocale global(std::locale(std::locale::classic(), new GroupedDigits));
    EXPECT_TRUE(archive("grouped") == expected_);
}

TEST_P(SameBytes, LocaleThatGroupsDigitsReadsTheSameTree) {
    const GlobalLocale global(std::locale(std::locale::classic(), new GroupedDigits));
    RecordingHost host;
    unpackArchive(GetParam(), (root_ / "expected").c_str(), (root_ / "unpacked").c_str());
    EXPECT_EQ(host.pendingMessage, std::nullopt);
    EXPECT_TRUE(readTree(root_ / "unpacked") == tree);
}

// The archive is read after the locale has been reset.
TEST_P(SameBytes, LocaleThatConvertsFilesChangesNothing) {
    {
        const GlobalLocale global(complementing());
        RecordingHost host;
        makeArchive(GetParam(), (root_ / "source").c_str(), (root_ / "converted").c_str());
        EXPECT_EQ(host.pendingMessage, std::nullopt);
    }
    EXPECT_TRUE(readFile(root_ / "converted") == expected_);
}

TEST_P(SameBytes, LocaleThatConvertsFilesReadsTheSameTree) {
    {
        const GlobalLocale global(complementing());
        RecordingHost host;
        unpackArchive(GetParam(), (root_ / "expected").c_str(), (root_ / "unpacked").c_str());
        EXPECT_EQ(host.pendingMessage, std::nullopt);
    }
    EXPECT_TRUE(readTree(root_ / "unpacked") == tree);
}

// Shows that the locale of the two tests above has an effect.
TEST(ConvertingLocale, ConvertsTheFilesOfOtherStreams) {
    const TempDir root;
    {
        const GlobalLocale global(complementing());
        writeFile(root / "file", "z\x0F");
        EXPECT_EQ(readFile(root / "file"), "z\x0F");
    }
    EXPECT_EQ(readFile(root / "file"), "\x85\xF0");
}

INSTANTIATE_TEST_SUITE_P(BothContainers, SameBytes,
                         ::testing::Values(Container::tar, Container::tgz), [](const auto& row) {
                             return std::string(row.param == Container::tar ? "Tar" : "Tgz");
                         });

}  // namespace vesk::testing
