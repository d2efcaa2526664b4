// Workers take chunks of the plan in order through one counter and encode each with their own
// encoder, all of which carry the first encoder's sync marker. The worker whose chunk is the next
// due writes it straight from its encoder, then the finished chunks that wait behind it; any other
// copies its chunk aside and goes on. A worker waits before it copies while its chunk is too far
// ahead of the file, so that at most two chunks a thread wait in memory.
#include "bulk/bulk_encode.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <map>
#include <mutex>

#include "bulk/worker_threads.h"
#include "encoder/enc_context.h"

namespace zulbulk {

namespace {

struct EncoderOwner {
    zul_enc_Context context = nullptr;
    ~EncoderOwner() { zul_enc_close(&context); }
};

bool writeAll(int fd, const char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t done = ::write(fd, bytes, size);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        bytes += done;
        size -= static_cast<size_t>(done);
    }
    return true;
}

class EncodeRun {
public:
    EncodeRun(int fd, const zul_DataType& dataType, const zul_Header2* header,
              const zul_bulk_Points& points, const std::vector<PlannedChunk>& plan, int window,
              const zul_enc_ContextStruct& first)
        : fd_(fd),
          dataType_(dataType),
          header_(header),
          points_(points),
          plan_(plan),
          window_(window),
          first_(first),
          failedAt_(static_cast<int64_t>(plan.size())) {}

    void work(zul_enc_Context encoder) {
        EncoderOwner own;
        if (!encoder) {
            if (zul_enc_open2(&own.context, &dataType_, header_) != zul_STATUS_OK) {
                fail(0, zul_STATUS_INVALID_ARGUMENT);
                return;
            }
            // One marker for the stream, whichever encoder makes the chunk.
            own.context->syncMarker = first_.syncMarker;
            encoder = own.context;
        }
        const int64_t count = static_cast<int64_t>(plan_.size());
        for (;;) {
            const int64_t k = next_.fetch_add(1);
            if (k >= count || k > failedAt_.load()) return;
            const PlannedChunk& chunk = plan_[static_cast<size_t>(k)];
            const size_t first = static_cast<size_t>(chunk.first);
            zul_PointData slice = {chunk.count, points_.positions + 3 * first,
                                   points_.colors ? points_.colors + 3 * first : nullptr,
                                   points_.reflections ? points_.reflections + first : nullptr,
                                   points_.normals ? points_.normals + 3 * first : nullptr};
            const char* bytes = nullptr;
            int size = 0;
            const zul_Status status = zul_enc_encodeChunk(encoder, &bytes, &size, &slice);
            if (status != zul_STATUS_OK) {
                fail(k, status);
                return;
            }
            deliver(k, bytes, static_cast<size_t>(size));
        }
    }

    void stop() { fail(0, zul_STATUS_WRITE_ERROR); }

    zul_Status failure() const { return failure_; }
    int64_t failedAt() const { return failedAt_.load(); }

private:
    void fail(int64_t k, zul_Status status) {
        std::lock_guard<std::mutex> lock(lock_);
        if (k < failedAt_.load()) {
            failedAt_ = k;
            failure_ = status;
        }
        ready_.notify_all();
    }

    // Hands chunk k to the file: written now if it is due, else kept until it is.
    void deliver(int64_t k, const char* bytes, size_t size) {
        std::unique_lock<std::mutex> lock(lock_);
        if (k > failedAt_.load()) return;
        if (k != nextToWrite_) {
            ready_.wait(lock, [&] { return k < nextToWrite_ + window_ || k > failedAt_.load(); });
            if (k > failedAt_.load()) return;
            if (k != nextToWrite_) {
                waiting_.emplace(k, std::vector<char>(bytes, bytes + size));
                return;
            }
        }
        // This thread owns the file until it has written every chunk that is due.
        std::vector<char> kept;
        for (;;) {
            lock.unlock();
            const bool written = writeAll(fd_, bytes, size);
            lock.lock();
            if (!written) {
                const int64_t failed = nextToWrite_;
                lock.unlock();
                fail(failed, zul_STATUS_WRITE_ERROR);
                return;
            }
            ++nextToWrite_;
            ready_.notify_all();
            const auto found = waiting_.find(nextToWrite_);
            if (found == waiting_.end() || nextToWrite_ >= failedAt_.load()) return;
            kept = std::move(found->second);
            waiting_.erase(found);
            bytes = kept.data();
            size = kept.size();
        }
    }

    int fd_;
    const zul_DataType& dataType_;
    const zul_Header2* header_;
    zul_bulk_Points points_;
    const std::vector<PlannedChunk>& plan_;
    int64_t window_;
    const zul_enc_ContextStruct& first_;
    std::atomic<int64_t> next_{0};
    std::atomic<int64_t> failedAt_;
    zul_Status failure_ = zul_STATUS_OK;
    std::mutex lock_;
    std::condition_variable ready_;
    int64_t nextToWrite_ = 0;
    std::map<int64_t, std::vector<char>> waiting_;
};

struct FileOwner {
    int fd = -1;
    ~FileOwner() {
        if (fd >= 0) ::close(fd);
    }
};

}  // namespace

zul_Status encodeFile(const char* path, const zul_DataType& dataType, const zul_Header2* header,
                      const zul_bulk_Points& points, const std::vector<PlannedChunk>& plan,
                      int threads, int64_t* failedAt) {
    *failedAt = -1;
    EncoderOwner first;
    if (zul_enc_open2(&first.context, &dataType, header) != zul_STATUS_OK)
        return zul_STATUS_INVALID_ARGUMENT;
    FileOwner file;
    file.fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file.fd < 0) return zul_STATUS_WRITE_ERROR;
    const char* signature = nullptr;
    const char* fileHeader = nullptr;
    int fileHeaderSize = 0;
    zul_enc_createFileSignature(first.context, &signature);
    zul_enc_encodeFileHeader(first.context, &fileHeader, &fileHeaderSize);
    if (!writeAll(file.fd, signature, 8) ||
        !writeAll(file.fd, fileHeader, static_cast<size_t>(fileHeaderSize)))
        return zul_STATUS_WRITE_ERROR;

    const int workers =
        resolveThreads(threads, static_cast<int64_t>(plan.size()), points.numPoints);
    EncodeRun run(file.fd, dataType, header, points, plan, 2 * workers, *first.context);
    runWorkers(
        workers, [&](int worker) { run.work(worker == 0 ? first.context : nullptr); },
        [&] { run.stop(); });
    const int fd = file.fd;
    file.fd = -1;
    const bool closed = ::close(fd) == 0;
    if (run.failure() != zul_STATUS_OK) {
        *failedAt = run.failedAt();
        return run.failure();
    }
    return closed ? zul_STATUS_OK : zul_STATUS_WRITE_ERROR;
}

}  // namespace zulbulk
