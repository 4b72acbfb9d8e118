// SPDX-License-Identifier: MIT
// vesk-floor: makes or unpacks a TAR archive that it holds in memory, by plain system calls and
// without any other work. Measured beside vesk-archive, it shows how much of the time is
// vesk-archive's own.
//
//     vesk-floor make SOURCE ARCHIVE
//     vesk-floor unpack ARCHIVE DESTINATION
//
// Makes the same archive of directories and regular files, byte for byte, and unpacks nothing else.
// It trusts its input: an invalid name, size or archive ends it at best.
#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t blockSize = 512;
constexpr std::size_t largePage = 2 << 20;
constexpr std::size_t room = std::size_t{16} << 30;  // address space: pages come when touched

template <typename Result>
Result checked(Result result, const char* what) {
    if (result == Result(-1)) {
        std::perror(what);
        std::exit(1);
    }
    return result;
}

unsigned char* mapLargePages(std::size_t size) {
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    checked(reinterpret_cast<std::intptr_t>(memory), "mmap");
    madvise(memory, size, MADV_HUGEPAGE);
    return static_cast<unsigned char*>(memory);
}

std::size_t padded(std::size_t size) {
    return (size + blockSize - 1) / blockSize * blockSize;
}

void collect(int parent, const char* name, const std::string& prefix,
             std::vector<std::string>& names) {
    const int file = checked(openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC), name);
    DIR* const directory = fdopendir(file);
    while (const dirent* entry = readdir(directory)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        const std::string path = prefix + entry->d_name;
        if (entry->d_type == DT_DIR) collect(file, entry->d_name, path + '/', names);
        if (entry->d_type == DT_REG) names.push_back(path);
    }
    closedir(directory);
}

void writeHeader(unsigned char* block, const std::string& name, std::size_t size) {
    std::memset(block, 0, blockSize);
    const std::size_t slash = name.size() <= 100 ? std::string::npos : name.rfind('/', 155);
    const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
    std::memcpy(block, name.data() + start, name.size() - start);
    if (start > 0) std::memcpy(block + 345, name.data(), slash);
    std::memcpy(block + 100, "0000644\0000000000\0000000000", 24);
    std::snprintf(reinterpret_cast<char*>(block + 124), 12, "%011zo", size);
    std::memcpy(block + 136, "00000000000", 12);
    std::memcpy(block + 148, "        0", 9);
    std::memcpy(block + 257, "ustar\00000", 8);
    unsigned sum = 0;
    for (std::size_t i = 0; i < blockSize; ++i)
        sum += block[i];
    std::snprintf(reinterpret_cast<char*>(block + 148), 8, "%06o", sum);
}

int make(const char* source, const char* archive) {
    std::vector<std::string> names;
    collect(AT_FDCWD, source, "", names);
    std::sort(names.begin(), names.end());

    const int root = checked(open(source, O_RDONLY | O_DIRECTORY | O_CLOEXEC), source);
    unsigned char* const stream = mapLargePages(room);
    std::size_t end = 0;
    for (const std::string& name : names) {
        const int file = checked(openat(root, name.c_str(), O_RDONLY | O_CLOEXEC), name.c_str());
        struct stat status {};
        checked(fstat(file, &status), name.c_str());
        const auto size = static_cast<std::size_t>(status.st_size);
        writeHeader(stream + end, name, size);
        end += blockSize;
        if (size > 0) checked(read(file, stream + end, size), name.c_str());
        close(file);
        end += padded(size);
    }
    end += 2 * blockSize;

    const int out = checked(open(archive, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666), archive);
    for (std::size_t written = 0; written < end;) {
        written +=
            static_cast<std::size_t>(checked(write(out, stream + written, end - written), archive));
    }
    return close(out);
}

std::string nameIn(const unsigned char* block) {
    const auto* const text = reinterpret_cast<const char*>(block);
    const std::string name(text, strnlen(text, 100));
    if (block[345] == 0) return name;
    return std::string(text + 345, strnlen(text + 345, 155)) + '/' + name;
}

/// Opens a new file, and makes its missing directories.
int create(int root, const std::string& name) {
    const auto open = [&] {
        return openat(root, name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    };
    const int file = open();
    if (file >= 0) return file;
    for (std::size_t slash = name.find('/'); slash != std::string::npos;
         slash = name.find('/', slash + 1))
        mkdirat(root, name.substr(0, slash).c_str(), 0777);
    return checked(open(), name.c_str());
}

int unpack(const char* archive, const char* destination) {
    const int in = checked(open(archive, O_RDONLY | O_CLOEXEC), archive);
    struct stat status {};
    checked(fstat(in, &status), archive);
    const auto size = static_cast<std::size_t>(status.st_size);
    unsigned char* const stream = mapLargePages((size / largePage + 1) * largePage);
    for (std::size_t got = 0; got < size;) {
        const auto count = checked(read(in, stream + got, size - got), archive);
        if (count == 0) break;
        got += static_cast<std::size_t>(count);
    }

    mkdir(destination, 0777);
    const int root = checked(open(destination, O_RDONLY | O_DIRECTORY | O_CLOEXEC), destination);
    for (const unsigned char* block = stream; *block != 0;) {
        const std::string name = nameIn(block);
        const std::size_t length =
            std::strtoull(reinterpret_cast<const char*>(block + 124), nullptr, 8);
        const int file = create(root, name);
        if (length > 0) checked(write(file, block + blockSize, length), name.c_str());
        close(file);
        block += blockSize + padded(length);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "make") == 0) return make(argv[2], argv[3]);
    if (argc == 4 && std::strcmp(argv[1], "unpack") == 0) return unpack(argv[2], argv[3]);
    std::fputs("usage: vesk-floor make SOURCE ARCHIVE | unpack ARCHIVE DESTINATION\n", stderr);
    return 2;
}
