#include "commands/stream_members.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "commands/companion_write.h"
#include "formats/byte_input.h"
#include "formats/cloud.h"

namespace zulconvert {

using namespace zulformats;

namespace {

// The bytes at `offset` of `path`, as many as there are up to `count`.
std::string bytesAt(const std::string& path, uint64_t offset, size_t count) {
    try {
        ByteInput in(path);
        if (offset >= in.size()) return std::string();
        in.seek(offset);
        std::string bytes(count, '\0');
        bytes.resize(in.readSome(bytes.data(), count));
        return bytes;
    } catch (const FormatError&) {
        return std::string();
    }
}

// The signature without its version byte: what every stream begins with.
constexpr size_t kSignatureBytes = 3;

}  // namespace

zul_Status StreamMembers::open(const std::string& path, bool applyTransformation, int64_t budgetMiB,
                               int64_t pointDensity) {
    members_.push_back(std::make_unique<StreamMember>());
    const zul_Status status = openIndex(path, applyTransformation, budgetMiB, pointDensity,
                                        members_[0]->index, members_[0]->head);
    if (status != zul_STATUS_OK) return status;
    int64_t pointsBefore = 0;  // of the streams before the next, for the density limit
    for (;;) {
        StreamMember& last = *members_.back();
        zul_Status stop = zul_STATUS_OK;
        int64_t chunk = 0, offset = 0;
        zul_idx_getDamage(last.index.index, &stop, &chunk, &offset);
        // A wrong sync marker where the next chunk would begin, on the stream's budget.
        if (stop != zul_STATUS_CORRUPT_DATA || chunk != last.head.usableChunks) break;
        const uint64_t next = last.head.start + static_cast<uint64_t>(offset);
        // Damage, or trailing bytes of something else (or a file that changed under the reading).
        const std::string head = bytesAt(path, next, kSignatureBytes + 1);
        if (head.size() < kSignatureBytes ||
            head.compare(0, kSignatureBytes, bytesAt(path, 0, kSignatureBytes)) != 0)
            break;
        for (int64_t c = 0; c < last.head.usableChunks; ++c) {
            zul_idx_Chunk listed = {};
            zul_idx_getChunk(last.index.index, c, &listed);
            pointsBefore += listed.numPoints;
        }
        const uint64_t fileEnd = last.head.start + last.head.fileBytes;
        last.head.fileBytes = next - last.head.start;
        headDamageStart_ = next;
        auto member = std::make_unique<StreamMember>();
        const zul_dec_Params params = {applyTransformation ? 1 : 0, {0, 0, 0, 0}};
        zul_Status opened = zul_idx_openFileAt(&member->index.index, path.c_str(),
                                               static_cast<int64_t>(next), &params);
        member->head.start = next;
        if (opened == zul_STATUS_OK) {
            opened = readHead(member->index.index, applyTransformation, budgetMiB, pointDensity,
                              pointsBefore, member->head);
        }
        if (opened != zul_STATUS_OK) {
            headDamage_ = opened;
            break;
        }
        member->head.fileBytes = fileEnd - next;
        member->head.version = static_cast<unsigned char>(head[kSignatureBytes]);
        members_.push_back(std::move(member));
    }
    return zul_STATUS_OK;
}

WalkEnd walkMembers(const std::string& path, StreamMembers& members, bool decodeBodies, int threads,
                    const std::function<void(size_t, const ChunkEntry&)>& onChunk) {
    uint64_t chunks = 0;
    int64_t points = 0;
    WalkEnd end;
    for (size_t i = 0; i < members.size(); ++i) {
        StreamMember& member = members[i];
        end = walkIndex(path, member.index.index, member.head, decodeBodies, threads,
                        [&](const ChunkEntry& entry) { onChunk(i, entry); });
        end.intactChunks += chunks;
        end.intactPoints += points;
        if (members.several()) {
            end.stream = i + 1;
            end.streamStart = member.head.start;
        }
        const bool last = i + 1 == members.size();
        // The index of a stream followed by another stops where the next one begins.
        const uint64_t next = last ? members.headDamageStart() : members[i + 1].head.start;
        const bool atNext = end.status == zul_STATUS_CORRUPT_DATA && end.offset == next &&
                            (!last || members.headDamage() != zul_STATUS_OK);
        if (!atNext) return end;
        if (last) {
            end.status = members.headDamage();
            end.stage = ZulStage::Open;
            end.stream = i + 2;
            end.streamStart = next;
            end.streamHead = true;
            end.damagedChunk = 0;
            end.offset = next;
            return end;
        }
        chunks = end.intactChunks;
        points = end.intactPoints;
    }
    end.status = zul_STATUS_OK;
    return end;
}

std::string unusedCompanionNote(const std::string& streamPath, const std::string& shown,
                                const StreamMembers& members) {
    const std::string companion = companionPath(streamPath);
    if (!members.several() || !std::filesystem::exists(companion)) return std::string();
    return companionPath(shown) + " belongs to one stream and " + shown +
           " holds several one after another: the companion is left unused";
}

}  // namespace zulconvert
