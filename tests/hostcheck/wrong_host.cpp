// SPDX-License-Identifier: MIT
// A runtime with the one defect that VESK_DEFECT names. Otherwise it behaves like the stand-in
// host.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "module/host/host_runtime.h"
#include "tests/support/loaded_library.h"

namespace fs = std::filesystem;

namespace {

bool has(std::string_view defect) {
    const char* const chosen = std::getenv("VESK_DEFECT");
    return chosen != nullptr && chosen == defect;
}

// Returns the stand-in's own version of `function`, found by the name that this library exports.
template <typename Function>
Function* standIn(Function* function) {
    static void* const library = vesk::testing::loadLibrary(VESK_STANDIN_HOST_PATH);
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(function), &info) == 0) std::abort();
    return reinterpret_cast<Function*>(vesk::testing::findSymbol(library, info.dli_sname));
}

const char* keptMessage = nullptr;
bool hasRaised = false;

/// Never read; `volatile` keeps the compiler from removing the writes.
struct KeptUnread {
    const char* volatile text;
};
thread_local KeptUnread keptByThread{};
KeptUnread* volatile keptOnTheHeap = nullptr;
std::array<KeptUnread, 1U << 20U> largeTable{};
/// The message's address with all bits turned over, as a compressed pointer is no pointer either.
std::uintptr_t hiddenMessage = 0;

/// Copies both texts, and stores their addresses at the end of a block that it then frees.
void copyByWayOfTheHeap(const char* className, const char* message) {
    for (const std::size_t size : {32U, 512U, 2000U, 100000U}) {
        auto* const places = static_cast<KeptUnread*>(std::malloc(size));
        KeptUnread* const last = places + size / sizeof(KeptUnread) - 1;
        last->text = message;
        (last - 1)->text = className;
        static std::string copies;
        copies = std::string((last - 1)->text) + last->text;
        std::free(places);
    }
}

/// Notes the message where other processes can see it, as a tracing runtime does.
void noteInSharedMemory(const char* message) {
    static void* const shared =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) std::abort();
    static_cast<KeptUnread*>(shared)->text = message;
}

void keepStrings(const char* className, const char* message) {
    if (has("raise keeps pointers")) keptMessage = message;
    if (has("raise keeps the class unread")) keptByThread.text = className;
    if (has("raise keeps the message unread")) keptOnTheHeap = new KeptUnread{message};
    if (has("raise keeps the message in a large table")) largeTable.back().text = message;
    if (has("raise keeps the message hidden"))
        hiddenMessage = ~reinterpret_cast<std::uintptr_t>(message);
    if (has("raise notes its strings in shared memory")) noteInSharedMemory(message);
    if (has("raise copies by way of the heap")) copyByWayOfTheHeap(className, message);
}

/// Prints the number of the process that hangs.
void hang() {
    std::fprintf(stderr, "%d\n", static_cast<int>(getpid()));
    for (;;)
        pause();
}

/// Behaves like a runtime that starts a helper process, which inherits all open files.
void startHelper() {
    if (fork() != 0) return;
    for (;;)
        pause();
}

void doWrongAfterRaise(std::string_view message) {
    if (has("raise leaves no files to open")) {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    if (has("raise prints")) {
        std::puts("FAIL  printed");
        std::fflush(stdout);
    }
    if (has("raise starts a helper process")) startHelper();
    if (has("raise throws")) throw std::runtime_error("IOException");
    if (has("raise throws control characters"))
        throw std::runtime_error("\x1B[2J\n\x7FIOException");
    if (has("raise throws a long text")) throw std::runtime_error(std::string(100000, 'x'));
    if (has("raise throws what is no exception")) throw 1;
    // Only once, or every requirement would wait for it.
    if (message != "Archive already exists") return;
    if (has("raise aborts beside a helper process")) startHelper();
    if (has("raise aborts") || has("raise aborts beside a helper process")) std::abort();
    if (has("raise exits")) _exit(0);
    if (has("raise exits with a status")) _exit(7);
    if (has("raise is interrupted")) std::raise(SIGTERM);
    if (has("raise hangs")) hang();
}

bool isAscii(std::string_view text) {
    return text.find_first_not_of(
               "\t\n\r !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ"
               "[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~") == std::string_view::npos;
}

void replaceAll(std::string& text, std::string_view what, std::string_view with) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
        text.replace(at, what.size(), with);
}

std::string changedText(std::string text) {
    if (has("paths are cut")) return text.substr(0, 200);
    if (has("paths become absolute")) return "/root/" + text;
    if (has("paths lose their root") && text.front() == '/') return text.substr(1);
    if (has("paths are trimmed")) text.erase(0, text.find_first_not_of(' '));
    if (has("paths are composed")) replaceAll(text, "e\xCC\x81", "\xC3\xA9");
    if (has("paths are decoded")) replaceAll(text, "%20", " ");
    for (char& byte : text) {
        // No UTF-8 has such a byte.
        if (has("paths are UTF-8") && byte == '\xFF') byte = '?';
        if (has("paths lose control characters") && byte == '\a') byte = '?';
        if (has("backslashes become slashes") && byte == '\\') byte = '/';
        if (has("paths are ASCII") && static_cast<unsigned char>(byte) >= 0x80) byte = '?';
    }
    return text;
}

/// Staging paths that differ from those of the stand-in, each with its original.
std::map<std::string, std::string>& renamed() {
    static std::map<std::string, std::string> paths;
    return paths;
}

fs::path standInsName(const fs::path& staging) {
    const auto found = renamed().find(staging.native());
    return found == renamed().end() ? staging : fs::path(found->second);
}

/// Gives the staging directory a name through a descriptor, which is closed when it is no longer
/// needed.
class DescriptorName {
public:
    static void give(fs::path& staging) {
        const fs::path real = fs::canonical(staging);
        descriptor() = ::open(real.parent_path().c_str(), O_PATH | O_CLOEXEC);
        const std::string link = "/proc/self/fd/" + std::to_string(descriptor());
        const fs::path name = link / real.filename();
        renamed()[name.native()] = staging.native();
        staging = name;
    }
    static void close() {
        if (descriptor() != -1) ::close(descriptor());
        descriptor() = -1;
    }

private:
    static int& descriptor() {
        static int open = -1;
        return open;
    }
};

bool goesUp(const fs::path& path) {
    return std::find(path.begin(), path.end(), "..") != path.end();
}

/// Tells whether a name before the last one is a symbolic link's.
bool goesByALink(const fs::path& path) {
    const fs::path parent = path.parent_path();
    return parent != path && (fs::is_symlink(parent) || goesByALink(parent));
}

/// Tells whether the destination is given by its own name, without dots or a link. A defect for
/// these destinations only is not found by the requirements for the others.
bool isPlain(const fs::path& destination) {
    return destination.has_filename() && destination == destination.lexically_normal() &&
           !fs::is_symlink(destination);
}

fs::path misread(const fs::path& destination) {
    std::string text = destination.native();
    const std::size_t dots = text.find("/./..");
    if (has("dots cancel each other") && dots != std::string::npos) return text.erase(dots, 5);
    if (has("dots cancel links") && goesUp(destination) && goesByALink(destination))
        return destination.lexically_normal();
    if (has("relative destinations lie elsewhere") && destination.is_relative())
        return fs::absolute("elsewhere" / destination);
    if (has("slashes add a level") && text.ends_with('/'))
        return destination / destination.parent_path().filename();
    return destination;
}

/// Puts the staging directory's name after the destination's parent as that is spelled.
void spellLikeTheDestination(const fs::path& destination, fs::path& staging) {
    const fs::path parent = destination.parent_path();
    const fs::path name = parent / fs::canonical(staging).lexically_relative(fs::canonical(parent));
    renamed()[name.native()] = staging.native();
    staging = name;
}

/// Lets others into the staging directory and into all directories between it and the
/// destination's directory.
void open(const fs::path& destination, const fs::path& staging, fs::perms permissions) {
    fs::path directory = fs::canonical(destination.parent_path());
    for (const fs::path& name : fs::canonical(staging).lexically_relative(directory)) {
        if (name == "..") std::abort();
        directory /= name;
        fs::permissions(directory, permissions);
    }
}

void openToOthers(const fs::path& destination, const fs::path& staging) {
    const fs::perms parent = fs::status(destination.parent_path()).permissions();
    const bool isSticky = (parent & fs::perms::sticky_bit) != fs::perms::none;
    if (has("staging is open to everybody") ||
        has(isSticky ? "staging is open in a sticky directory"
                     : "staging is open where names are anybody's"))
        open(destination, staging, fs::perms::all);
    if (has("staging is open to a group")) open(destination, staging, fs::perms{0750});
}

bool isCopied() {
    return has("staging is copied from elsewhere") || has("staging is copied and stays");
}

bool isStagedElsewhere() {
    return isCopied() || has("staging is renamed from elsewhere");
}

void stageElsewhere(fs::path& staging) {
    std::string name = (fs::temp_directory_path() / "wrong-host-XXXXXX").native();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    renamed()[name] = staging.native();
    staging = name;
}

bool bringBack(const fs::path& staging, fs::path& back, std::string& error) {
    back = standInsName(staging);
    std::error_code failure;
    if (isCopied()) {
        fs::copy(staging, back, fs::copy_options::recursive, failure);
        if (!has("staging is copied and stays")) fs::remove_all(staging);
    } else {
        // The stand-in commits only the directory that it made.
        for (const auto& entry : fs::directory_iterator(staging, failure))
            if (!failure) fs::rename(entry, back / entry.path().filename(), failure);
        if (!failure) fs::remove(staging);
    }
    if (failure) error = "cannot bring the files";
    return !failure;
}

bool isEmptyDirectory(const fs::path& path) {
    return fs::is_directory(path) && fs::is_empty(path);
}

bool mayReplace(const fs::path& destination, bool overwrite) {
    const bool acceptsEmpty =
        has("empty destinations are accepted") || has("empty destinations are accepted in vain");
    return overwrite || has("everything may be replaced") ||
           (has("files may be replaced") && fs::is_regular_file(destination)) ||
           (has("directories may be replaced") && fs::is_directory(destination)) ||
           (acceptsEmpty && isEmptyDirectory(destination));
}

/// The destination for which the last staging directory was made.
fs::path lastDestination;
bool lastMayReplace = false;

/// Changes the error text as a function that `failed` or succeeded must not.
void spoil(std::string_view function, bool failed, const std::string& before, std::string& error) {
    const auto is = [&](const char* what) { return has(std::string(function) + what); };
    if (!failed && is(" clears the error text")) error.clear();
    if (failed && is(" appends to the error text")) error = before + error;
    if (failed && is(" gives no message")) error.clear();
    if (failed && is(" leaves the error text")) error = before;
}

bool hasNothingBut(const fs::path& directory, bool directories) {
    for (const auto& entry : fs::recursive_directory_iterator(directory))
        if (entry.is_directory() != directories) return false;
    return true;
}

void dropEmptyDirectories(const fs::path& root) {
    for (const auto& entry : fs::directory_iterator(root))
        if (entry.is_directory() && hasNothingBut(entry, true)) fs::remove_all(entry);
}

void keepOldFiles(const fs::path& destination, const fs::path& staging) {
    if (fs::exists(destination))
        fs::copy(destination, staging,
                 fs::copy_options::recursive | fs::copy_options::skip_existing);
}

/// Changes the targets of symbolic links in the tree, as a deletion that follows them does.
void followLinks(const std::string& function, const fs::path& tree) {
    if (!fs::is_directory(tree)) return;
    for (const auto& entry : fs::recursive_directory_iterator(tree)) {
        if (!entry.is_symlink()) continue;
        if (entry.is_directory() && has(function + " follows links to directories"))
            for (const auto& inner : fs::directory_iterator(entry))
                fs::remove_all(inner);
        if (entry.is_regular_file() && has(function + " follows links to files"))
            fs::remove(fs::canonical(entry));
    }
}

void doWrongBeforeCommit(const fs::path& staging, const fs::path& destination) {
    if (!fs::exists(staging)) return;
    if (has("staging holds a lock file")) fs::remove(staging / ".lock");
    // Not in every tree, or other requirements would find it, too.
    if (has("commit adds a file") && fs::exists(staging / "hollow"))
        std::ofstream(staging / ".index");
    if (has("commit adds a file to nothing") && fs::is_empty(staging))
        std::ofstream(staging / ".index");
    if (has("commit drops empty directories")) dropEmptyDirectories(staging);
    if (lastMayReplace && isPlain(destination)) followLinks("commit", destination);
    if (has("commit merges")) keepOldFiles(destination, staging);
    if (has("commit replaces what appeared") && isPlain(destination)) fs::remove_all(destination);
}

void removeFiles(const fs::path& directory) {
    if (!fs::exists(directory)) return;
    for (const auto& entry : fs::recursive_directory_iterator(directory))
        if (!entry.is_directory()) fs::remove(entry);
}

void removeNeighbours(const fs::path& destination) {
    for (const auto& entry : fs::directory_iterator(destination.parent_path()))
        if (!entry.is_directory()) fs::remove(entry);
}

void emptyNeighbours(const fs::path& destination) {
    for (const auto& entry : fs::directory_iterator(destination.parent_path()))
        if (entry.is_regular_file()) std::ofstream(entry.path(), std::ios::trunc);
}

/// The changes to the destination's neighbours by a commit.
void doWrongBesideDestination(const fs::path& destination) {
    const std::string name = destination.native();
    if (has("commit leaves a file")) std::ofstream(destination.parent_path() / ".committed");
    if (has("commit takes the name out.old")) fs::remove_all(name + ".old");
    if (has("commit empties a neighbour") && fs::exists(name + "~")) std::ofstream(name + "~");
    if (has("commit leaves the old tree") && lastMayReplace) fs::create_directory(name + ".1");
    if (!has("commit takes neighbours")) return;
    for (const auto& entry : fs::directory_iterator(fs::absolute(destination).parent_path()))
        if (entry.path().filename() != destination.filename()) fs::remove_all(entry);
}

/// Returns what zlib decodes from the data, which may be followed by other bytes.
std::optional<std::string> decodedByZlib(const std::string& packed, std::size_t& rest) {
    z_stream stream{};
    inflateInit2(&stream, -15);
    std::string content(1 << 20, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = reinterpret_cast<Bytef*>(content.data());
    stream.avail_out = static_cast<uInt>(content.size());
    const int result = inflate(&stream, Z_FINISH);
    content.resize(stream.total_out);
    rest = stream.avail_in;
    inflateEnd(&stream);
    return result == Z_STREAM_END ? std::optional(content) : std::nullopt;
}

bool ignoresSize() {
    return has("inflate ignores the size") || has("inflate fills up to the declared size") ||
           has("inflate checks the declared size only");
}

bool inflateByZlib(const std::string& packed, std::uint64_t size, std::ostream& out,
                   std::uint32_t& crc, std::string& error) {
    std::size_t rest = 0;
    const auto content = decodedByZlib(packed, rest);
    const bool isRefused = !content || (rest != 0 && !has("inflate ignores what follows")) ||
                           (content->size() != size && !ignoresSize());
    if (isRefused) {
        error = "refused";
        return false;
    }
    out << *content;
    if (has("inflate fills up to the declared size") && size > content->size())
        out << std::string(size - content->size(), '\0');
    const std::size_t checked = has("inflate checks the declared size only")
                                    ? std::min<std::size_t>(size, content->size())
                                    : content->size();
    crc = static_cast<std::uint32_t>(
        crc32_z(0, reinterpret_cast<const Bytef*>(content->data()), checked));
    return true;
}

bool refusesKind(const std::string& packed, std::uint64_t size) {
    const int kind = packed.front() >> 1 & 3;
    if (has("inflate knows no stored blocks")) return kind == 0 && size > 0;
    if (has("inflate knows no second block")) return kind == 0 && size > 65535;
    if (has("inflate knows no short fixed blocks")) return kind == 1 && size == 24;
    if (has("inflate knows no dynamic blocks")) return kind == 2;
    if (has("inflate knows no empty blocks")) return packed.size() <= 5 && size == 0;
    return has("inflate copies from nearby only") && size == 33026;
}

bool acceptsAllTheSame(const std::string& error) {
    return (has("inflate accepts an early end") && error == "Truncated DEFLATE data") ||
           (has("inflate accepts anything") && error == "Invalid DEFLATE data") ||
           (has("inflate cuts at the declared size") &&
            error == "DEFLATE output is longer than its declared size");
}

}  // namespace

void Vesk_raise(const char* className, const char* message) {
    if (has("raise drops empty messages") && *message == '\0') return;
    if (has("raise drops odd messages") && !isAscii(message)) return;
    if (has("raise drops other than UTF-8") && std::strchr(message, 0xFF) != nullptr) return;
    if (has("raise drops long messages") && std::string_view(message).size() > 4096) return;
    keepStrings(className, message);
    hasRaised = true;
    standIn (&Vesk_raise)(className, message);
    doWrongAfterRaise(message);
}

int Vesk_hasPendingError(void) {
    static int asked = 0;
    if (has("pending from the start")) return 1;
    if (has("never pending")) return 0;
    if (has("pending is global")) return hasRaised ? 1 : 0;
    if (has("pending once") && ++asked > 1) return 0;
    if (keptMessage != nullptr && *keptMessage == '!') return 2;
    if (hiddenMessage != 0 && *reinterpret_cast<const char*>(~hiddenMessage) == '!') return 2;
    return standIn(&Vesk_hasPendingError)();
}

fs::path Vesk_runtimeFsPath(const char* text) {
    const fs::path path = standIn(&Vesk_runtimeFsPath)(changedText(text).c_str());
    return has("paths are normalised") ? path.lexically_normal() : path;
}

namespace vesk::runtime::archives {

bool modeIsOverwrite(void* mode) {
    return standIn(&modeIsOverwrite)(mode);
}

bool prepareExtractionStaging(const fs::path& destination, bool overwrite, fs::path& staging,
                              std::string& error) {
    static std::map<std::string, std::string> shared;
    const std::string before = error;
    if (has("relative destinations are refused") && destination.is_relative()) return false;
    if (has("staging is shared") && shared.contains(destination.native())) {
        staging = shared[destination.native()];
        return true;
    }
    if (has("links are replaced") && fs::is_symlink(destination)) fs::remove(destination);
    if (has("old tree goes first") && overwrite && isPlain(destination))
        fs::remove_all(destination);
    lastDestination = destination;
    lastMayReplace = mayReplace(destination, overwrite);
    const bool prepared =
        standIn(&prepareExtractionStaging)(misread(destination), lastMayReplace, staging, error);
    if (!prepared && has("refusal leaves a directory"))
        fs::create_directory(destination.native() + ".staging");
    if (prepared && isStagedElsewhere()) stageElsewhere(staging);
    if (prepared && has("staging is named through a descriptor")) DescriptorName::give(staging);
    if (prepared && isPlain(destination)) openToOthers(fs::absolute(destination), staging);
    if (prepared && has("staging is spelled like the destination") && goesUp(destination))
        spellLikeTheDestination(destination, staging);
    if (prepared && has("staging holds a lock file")) std::ofstream(staging / ".lock");
    shared[destination.native()] = staging.native();
    spoil("prepare", !prepared, before, error);
    return prepared;
}

bool commitExtractionStaging(const fs::path& staging, const fs::path& destination,
                             std::string& error) {
    const std::string before = error;
    fs::path source = standInsName(staging);
    if (isStagedElsewhere() && !bringBack(staging, source, error)) return false;
    if (has("commit never replaces") && isPlain(destination) && fs::exists(destination) &&
        !isEmptyDirectory(destination))
        return false;
    if (has("empty destinations are accepted in vain") && isEmptyDirectory(destination))
        return false;
    if (has("empty destinations stay empty") && isEmptyDirectory(destination)) return true;
    if (has("commit deletes before it renames") && lastMayReplace && isPlain(destination))
        fs::remove_all(destination);
    doWrongBeforeCommit(source, destination);
    if (has("commit drops empty trees") && fs::exists(source) && fs::is_empty(source))
        return fs::remove(source);
    const bool committed = standIn(&commitExtractionStaging)(source, misread(destination), error) ||
                           has("commit claims success");
    if (committed) DescriptorName::close();
    if (committed && isPlain(destination)) doWrongBesideDestination(destination);
    spoil("commit", !committed, before, error);
    return committed;
}

void removeExtractionTree(const fs::path& staging) {
    if (has("remove throws") && !fs::exists(staging)) throw std::runtime_error("nothing there");
    if (has("remove keeps directories")) return removeFiles(staging);
    if (has("remove takes neighbours")) removeNeighbours(lastDestination);
    if (has("remove empties neighbours")) emptyNeighbours(lastDestination);
    followLinks("remove", staging);
    if (isStagedElsewhere()) fs::remove_all(staging);
    standIn (&removeExtractionTree)(standInsName(staging));
    DescriptorName::close();
}

}  // namespace vesk::runtime::archives

namespace vesk::runtime::zip {

std::uint32_t crc32Update(std::uint32_t crc, const std::uint8_t* bytes, std::uint64_t count) {
    if (count == 0) return bytes == nullptr && has("crc of nothing is 0") ? 0 : crc;
    if (has("crc starts anew")) crc = 0xFFFFFFFF;
    if (has("crc inverts")) return ~standIn(&crc32Update)(~crc, bytes, count);
    if (has("crc counts in 32 bits")) count = static_cast<std::uint32_t>(count);
    return standIn(&crc32Update)(crc, bytes, count);
}

bool inflateRaw(std::istream& in, std::uint64_t compressedSize, std::uint64_t uncompressedSize,
                std::ostream& out, std::uint32_t& crc, std::string& error) {
    const std::string before = error;
    std::string packed(compressedSize, '\0');
    in.read(packed.data(), static_cast<std::streamsize>(compressedSize));
    if (ignoresSize() || has("inflate ignores what follows"))
        return inflateByZlib(packed, uncompressedSize, out, crc, error);
    if (refusesKind(packed, uncompressedSize)) {
        error = "refused";
        return false;
    }

    std::istringstream again(packed);
    bool decoded = standIn(&inflateRaw)(again, compressedSize, uncompressedSize, out, crc, error);
    if (!decoded && acceptsAllTheSame(error)) {
        error = before;
        return true;
    }
    if (decoded && has("inflate gives the register")) crc = ~crc;
    spoil("inflate", !decoded, before, error);
    return decoded;
}

}  // namespace vesk::runtime::zip
