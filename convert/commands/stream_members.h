// A zul file of several streams one after another, as `cat a.zul b.zul > ab.zul` makes it, read
// as gzip reads concatenated members. A stream has no end mark: its last chunk is followed by the
// end of the file, or by the signature of the next stream, which the chunk index reports as a
// wrong sync marker. Where that happens at the place of a sync marker and the bytes there begin
// with the zul signature, a following stream begins; any other bytes are damage, as before. Each
// stream gets its own chunk index over the file, from the stream's first byte on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands/chunk_batches.h"
#include "commands/chunk_walk.h"

namespace zulconvert {

struct StreamMember {
    IndexGuard index;
    ZulFileHead head;  // head.start: where it begins; head.fileBytes: its bytes
};

class StreamMembers {
public:
    // Opens the stream at the start of `path` as openIndex does and returns that status; then
    // every stream that follows, up to the first whose head is damaged (headDamage()).
    zul_Status open(const std::string& path, bool applyTransformation, int64_t budgetMiB,
                    int64_t pointDensity);

    size_t size() const { return members_.size(); }
    StreamMember& operator[](size_t i) { return *members_[i]; }
    const StreamMember& operator[](size_t i) const { return *members_[i]; }
    // More than one stream, or one followed by a stream whose head is damaged: messages then
    // name the stream.
    bool several() const { return members_.size() > 1 || headDamage_ != zul_STATUS_OK; }
    // The status of the head of the stream after the last one opened, and where it begins.
    zul_Status headDamage() const { return headDamage_; }
    uint64_t headDamageStart() const { return headDamageStart_; }

private:
    std::vector<std::unique_ptr<StreamMember>> members_;
    zul_Status headDamage_ = zul_STATUS_OK;
    uint64_t headDamageStart_ = 0;
};

// Walks the chunks of every stream in turn as walkIndex walks one (`onChunk` gets the stream's
// number from 0), and says where the file stops being intact: zul_STATUS_OK after the last
// chunk of the last stream; the counts are those of the whole file.
WalkEnd walkMembers(const std::string& path, StreamMembers& members, bool decodeBodies, int threads,
                    const std::function<void(size_t, const ChunkEntry&)>& onChunk);

// For a file of several streams with a companion NAME.zulx beside it: the note that the
// companion, which belongs to one stream, is left unused; else "". `shown` names the file.
std::string unusedCompanionNote(const std::string& streamPath, const std::string& shown,
                                const StreamMembers& members);

}  // namespace zulconvert
