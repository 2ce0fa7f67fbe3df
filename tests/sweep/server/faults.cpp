// Loaded into the server in front of the C library: lets the calls fail that a test orders. And gives SQLite
// a file system that does.
#include <dlfcn.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "Orders.h"

// The C library's own, which need no looking up: that would allocate.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace quorvel::sweep {
namespace {

constinit Orders* orders = nullptr;

// The error to fail with, or 0.
int error_of(ServerCall call) {
    if (orders == nullptr || orders->from == 0 || orders->call != static_cast<uint32_t>(call))
        return 0;
    const uint32_t number = ++orders->made;
    const uint32_t from = orders->from;
    if (from == 0 || number < from || number - from >= orders->times)
        return 0;
    ++orders->failures;
    return orders->error;
}

bool fails(ServerCall call) {
    const int error = error_of(call);
    if (error != 0)
        errno = error;
    return error != 0;
}

template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
#define QV_REAL(name) (::quorvel::sweep::real<decltype(::name)>(#name))

// ---- SQLite's files: the real ones with a fault in front of each operation.

struct File {
    sqlite3_file base;
    sqlite3_file* real;
};

sqlite3_file* real_of(sqlite3_file* file) {
    return reinterpret_cast<File*>(file)->real;
}
const sqlite3_io_methods& methods_of(sqlite3_file* file) {
    return *real_of(file)->pMethods;
}

sqlite3_vfs* real_vfs = nullptr;
sqlite3_vfs vfs;

int close_file(sqlite3_file* file) {
    return methods_of(file).xClose(real_of(file));
}
int read_file(sqlite3_file* file, void* to, int size, sqlite3_int64 at) {
    return error_of(ServerCall::SqliteIo) != 0 ? SQLITE_IOERR_READ
                                               : methods_of(file).xRead(real_of(file), to, size, at);
}
int write_file(sqlite3_file* file, const void* from, int size, sqlite3_int64 at) {
    if (error_of(ServerCall::SqliteFull) != 0)
        return SQLITE_FULL;
    return error_of(ServerCall::SqliteIo) != 0 ? SQLITE_IOERR_WRITE
                                               : methods_of(file).xWrite(real_of(file), from, size, at);
}
int truncate_file(sqlite3_file* file, sqlite3_int64 size) {
    return error_of(ServerCall::SqliteIo) != 0 ? SQLITE_IOERR_TRUNCATE
                                               : methods_of(file).xTruncate(real_of(file), size);
}
int sync_file(sqlite3_file* file, int flags) {
    return error_of(ServerCall::SqliteIo) != 0 ? SQLITE_IOERR_FSYNC
                                               : methods_of(file).xSync(real_of(file), flags);
}
int size_of_file(sqlite3_file* file, sqlite3_int64* size) {
    return methods_of(file).xFileSize(real_of(file), size);
}
int lock_file(sqlite3_file* file, int level) {
    return error_of(ServerCall::SqliteBusy) != 0 ? SQLITE_BUSY : methods_of(file).xLock(real_of(file), level);
}
int unlock_file(sqlite3_file* file, int level) {
    return methods_of(file).xUnlock(real_of(file), level);
}
int is_reserved(sqlite3_file* file, int* result) {
    return methods_of(file).xCheckReservedLock(real_of(file), result);
}
int control_file(sqlite3_file* file, int operation, void* argument) {
    return methods_of(file).xFileControl(real_of(file), operation, argument);
}
int sector_size(sqlite3_file* file) {
    return methods_of(file).xSectorSize(real_of(file));
}
int characteristics(sqlite3_file* file) {
    return methods_of(file).xDeviceCharacteristics(real_of(file));
}
int map_shared(sqlite3_file* file, int page, int size, int extend, void volatile** out) {
    return methods_of(file).xShmMap(real_of(file), page, size, extend, out);
}
int lock_shared(sqlite3_file* file, int offset, int count, int flags) {
    const bool takes = (flags & SQLITE_SHM_LOCK) != 0;
    return takes && error_of(ServerCall::SqliteBusy) != 0
               ? SQLITE_BUSY
               : methods_of(file).xShmLock(real_of(file), offset, count, flags);
}
void order_shared(sqlite3_file* file) {
    methods_of(file).xShmBarrier(real_of(file));
}
int unmap_shared(sqlite3_file* file, int remove) {
    return methods_of(file).xShmUnmap(real_of(file), remove);
}

const sqlite3_io_methods kMethods = {
    2,           close_file,   read_file,    write_file,   truncate_file, sync_file,       size_of_file,
    lock_file,   unlock_file,  is_reserved,  control_file, sector_size,   characteristics, map_shared,
    lock_shared, order_shared, unmap_shared, nullptr,      nullptr};

int open_file(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out) {
    auto* wrapped = reinterpret_cast<File*>(file);
    wrapped->real = reinterpret_cast<sqlite3_file*>(wrapped + 1);
    wrapped->base.pMethods = nullptr;
    if (error_of(ServerCall::SqliteIo) != 0)
        return SQLITE_CANTOPEN;
    const int result = real_vfs->xOpen(real_vfs, name, wrapped->real, flags, out);
    if (wrapped->real->pMethods != nullptr)
        wrapped->base.pMethods = &kMethods;
    return result;
}

int delete_file(sqlite3_vfs*, const char* name, int sync) {
    return error_of(ServerCall::SqliteIo) != 0 ? SQLITE_IOERR_DELETE
                                               : real_vfs->xDelete(real_vfs, name, sync);
}

void give_sqlite_files() {
    real_vfs = sqlite3_vfs_find(nullptr);
    vfs = *real_vfs;
    vfs.zName = "faults";
    vfs.szOsFile = static_cast<int>(sizeof(File)) + real_vfs->szOsFile;
    vfs.xOpen = open_file;
    vfs.xDelete = delete_file;
    sqlite3_vfs_register(&vfs, 1);
}

__attribute__((constructor)) void begin() {
    const int fd = open(kOrdersPath, O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return;
    void* shared = mmap(nullptr, sizeof(Orders), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    give_sqlite_files();
    if (shared != MAP_FAILED)
        orders = static_cast<Orders*>(shared);
}

}  // namespace
}  // namespace quorvel::sweep

using quorvel::sweep::fails;
using quorvel::sweep::ServerCall;

#define QV_WRAPPER extern "C" __attribute__((visibility("default")))

QV_WRAPPER void* malloc(size_t size) noexcept {
    return fails(ServerCall::Memory) ? nullptr : __libc_malloc(size);
}
QV_WRAPPER void* calloc(size_t count, size_t size) noexcept {
    return fails(ServerCall::Memory) ? nullptr : __libc_calloc(count, size);
}
QV_WRAPPER void* realloc(void* block, size_t size) noexcept {
    return fails(ServerCall::Memory) ? nullptr : __libc_realloc(block, size);
}

QV_WRAPPER int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    return fails(ServerCall::Accept) ? -1 : QV_REAL(accept4)(fd, address, length, flags);
}
QV_WRAPPER ssize_t read(int fd, void* buffer, size_t length) {
    return fails(ServerCall::Read) ? -1 : QV_REAL(read)(fd, buffer, length);
}
QV_WRAPPER ssize_t readv(int fd, const iovec* parts, int count) {
    return fails(ServerCall::Read) ? -1 : QV_REAL(readv)(fd, parts, count);
}
QV_WRAPPER ssize_t recv(int fd, void* buffer, size_t length, int flags) {
    return fails(ServerCall::Read) ? -1 : QV_REAL(recv)(fd, buffer, length, flags);
}
QV_WRAPPER ssize_t write(int fd, const void* buffer, size_t length) {
    return fails(ServerCall::Write) ? -1 : QV_REAL(write)(fd, buffer, length);
}
QV_WRAPPER ssize_t writev(int fd, const iovec* parts, int count) {
    return fails(ServerCall::Write) ? -1 : QV_REAL(writev)(fd, parts, count);
}
QV_WRAPPER ssize_t send(int fd, const void* buffer, size_t length, int flags) {
    return fails(ServerCall::Write) ? -1 : QV_REAL(send)(fd, buffer, length, flags);
}
QV_WRAPPER ssize_t recvmsg(int fd, msghdr* message, int flags) {
    return fails(ServerCall::Netlink) ? -1 : QV_REAL(recvmsg)(fd, message, flags);
}
QV_WRAPPER ssize_t sendto(int fd, const void* buffer, size_t length, int flags, const sockaddr* to,
                          socklen_t size) {
    return fails(ServerCall::Netlink) ? -1 : QV_REAL(sendto)(fd, buffer, length, flags, to, size);
}
QV_WRAPPER int open(const char* path, int flags, ...) {
    va_list values;
    va_start(values, flags);
    const auto mode = static_cast<mode_t>(va_arg(values, int));
    va_end(values);
    return fails(ServerCall::Open) ? -1 : QV_REAL(open)(path, flags, mode);
}
