#include "sqlite_bag.h"

#include <sqlite3.h>

#include <filesystem>
#include <memory>

namespace zul::ros {

namespace {

class Database {
public:
    Database(const std::string& path, bool write) : path_(path) {
        const int flags = write ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY;
        if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) fail("cannot open");
        // A file that is not a database fails here, at its first read.
        const auto tables = query(
            "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name IN "
            "('topics', 'messages')");
        if (tables.empty() || tables[0] != "2")
            throw Error(path_ + ": not a ROS 2 SQLite bag (no topics and messages tables)");
    }

    [[noreturn]] void fail(const std::string& what) const {
        throw Error(path_ + ": " + what +
                    " (SQLite: " + (db_ ? sqlite3_errmsg(db_) : "no database") + ")");
    }

    sqlite3_stmt* prepare(const std::string& sql) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
            fail("cannot run " + sql);
        return statement;
    }

    // The first column of every row, as text.
    std::vector<std::string> query(const std::string& sql) {
        Statement s(prepare(sql));
        std::vector<std::string> rows;
        int step;
        while ((step = sqlite3_step(s.get())) == SQLITE_ROW) {
            const unsigned char* text = sqlite3_column_text(s.get(), 0);
            rows.emplace_back(text ? reinterpret_cast<const char*>(text) : "");
        }
        if (step != SQLITE_DONE) fail("cannot read");
        return rows;
    }

    void exec(const std::string& sql) {
        if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
            fail("cannot run " + sql);
    }

    int64_t lastRow() const { return sqlite3_last_insert_rowid(db_); }

    struct Finalize {
        void operator()(sqlite3_stmt* s) const { sqlite3_finalize(s); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

private:
    std::string path_;
    // Closed also when the constructor throws.
    struct Handle {
        sqlite3* value = nullptr;
        ~Handle() { sqlite3_close(value); }
    } handle_;
    sqlite3*& db_ = handle_.value;
};

struct TopicRow {
    int64_t id;
    std::string name, type, format;
};

std::vector<TopicRow> topicsOf(Database& db) {
    Database::Statement s(
        db.prepare("SELECT id, name, type, serialization_format FROM topics ORDER BY id"));
    std::vector<TopicRow> topics;
    while (sqlite3_step(s.get()) == SQLITE_ROW) {
        auto text = [&](int column) {
            const unsigned char* t = sqlite3_column_text(s.get(), column);
            return std::string(t ? reinterpret_cast<const char*>(t) : "");
        };
        topics.push_back({sqlite3_column_int64(s.get(), 0), text(1), text(2), text(3)});
    }
    return topics;
}

// A new topic row: the old one's columns, with another name and type.
int64_t addTopic(Database& db, int64_t from, const std::string& name, const std::string& type) {
    std::string columns, values;
    for (const std::string& column : db.query("SELECT name FROM pragma_table_info('topics')")) {
        if (column == "id") continue;
        columns += (columns.empty() ? "" : ", ") + ("\"" + column + "\"");
        const std::string value = column == "name"                    ? "?1"
                                  : column == "type"                  ? "?2"
                                  : column == "type_description_hash" ? "''"
                                                                      : "\"" + column + "\"";
        values += (values.empty() ? "" : ", ") + value;
    }
    Database::Statement s(db.prepare("INSERT INTO topics (" + columns + ") SELECT " + values +
                                     " FROM topics WHERE id = ?3"));
    sqlite3_bind_text(s.get(), 1, name.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(s.get(), 2, type.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int64(s.get(), 3, from);
    if (sqlite3_step(s.get()) != SQLITE_DONE) db.fail("cannot add topic " + name);
    return db.lastRow();
}

using Convert = std::function<std::vector<uint8_t>(const uint8_t*, size_t)>;

BagResult convertInPlace(const std::string& in, const std::string& out, const std::string& fromType,
                         const std::string& toType, bool compress, const Convert& convert,
                         const BagProgress& progress) {
    { Database check(in, false); }
    if (std::filesystem::exists(out) && std::filesystem::equivalent(in, out))
        throw Error(out + ": is the bag being converted");
    std::error_code error;
    std::filesystem::copy_file(in, out, std::filesystem::copy_options::overwrite_existing, error);
    if (error) throw Error(out + ": cannot write (" + error.message() + ")");
    BagResult result;
    Database db(out, true);
    // The copy is removed whenever the conversion does not finish: no journal file beside it.
    db.exec("PRAGMA journal_mode = MEMORY");
    db.exec("BEGIN");
    struct Work {
        TopicRow topic;
        std::vector<int64_t> ids;
    };
    std::vector<Work> work;
    uint64_t total = 0;
    for (const TopicRow& topic : topicsOf(db)) {
        if (topic.type != fromType) continue;
        if (topic.format != "cdr") {
            result.problems.push_back("topic " + topic.name + ": serialisation '" + topic.format +
                                      "', not cdr; left as it is");
            continue;
        }
        Work w{topic, {}};
        for (const std::string& id : db.query("SELECT id FROM messages WHERE topic_id = " +
                                              std::to_string(topic.id) + " ORDER BY timestamp, id"))
            w.ids.push_back(std::stoll(id));
        total += w.ids.size();
        work.push_back(std::move(w));
    }
    uint64_t done = 0;
    for (const Work& w : work) {
        const std::string& name = w.topic.name;
        std::string newName = name + "/zul";
        if (!compress)
            newName = name.size() > 4 && name.compare(name.size() - 4, 4, "/zul") == 0
                          ? name.substr(0, name.size() - 4)
                          : name + "/restored";
        const int64_t newId = addTopic(db, w.topic.id, newName, toType);
        Database::Statement read(db.prepare("SELECT timestamp, data FROM messages WHERE id = ?"));
        Database::Statement write(
            db.prepare("UPDATE messages SET topic_id = ?, data = ? WHERE id = ?"));
        uint64_t left = 0;
        for (int64_t id : w.ids) {
            sqlite3_reset(read.get());
            sqlite3_bind_int64(read.get(), 1, id);
            if (sqlite3_step(read.get()) != SQLITE_ROW)
                db.fail("cannot read message " + std::to_string(id));
            const int64_t stamp = sqlite3_column_int64(read.get(), 0);
            const uint8_t* bytes = static_cast<const uint8_t*>(sqlite3_column_blob(read.get(), 1));
            const size_t size = size_t(sqlite3_column_bytes(read.get(), 1));
            std::vector<uint8_t> converted;
            try {
                converted = convert(bytes, size);
            } catch (const Error& e) {
                result.problems.push_back("topic " + name + ", message " + std::to_string(id) +
                                          " at " + std::to_string(stamp) + " ns: " + e.what());
                ++left;
            }
            if (!converted.empty()) {
                sqlite3_reset(write.get());
                sqlite3_bind_int64(write.get(), 1, newId);
                sqlite3_bind_blob64(write.get(), 2, converted.data(), converted.size(),
                                    SQLITE_STATIC);
                sqlite3_bind_int64(write.get(), 3, id);
                if (sqlite3_step(write.get()) != SQLITE_DONE)
                    db.fail("cannot write message " + std::to_string(id));
                ++result.converted;
            }
            if (progress && !progress(++done, total)) {
                result.interrupted = true;
                db.exec("ROLLBACK");
                return result;
            }
        }
        if (left == 0) db.exec("DELETE FROM topics WHERE id = " + std::to_string(w.topic.id));
    }
    db.exec("COMMIT");
    db.exec("VACUUM");
    return result;
}

// The converted copy, or no file at all when the conversion fails or is interrupted.
BagResult convertBag(const std::string& in, const std::string& out, const std::string& fromType,
                     const std::string& toType, bool compress, const Convert& convert,
                     const BagProgress& progress) {
    return wholeOrNothing(out, [&] {
        return convertInPlace(in, out, fromType, toType, compress, convert, progress);
    });
}

}  // namespace

std::vector<BagTopic> listSqliteBag(const std::string& path) {
    Database db(path, false);
    std::vector<BagTopic> topics;
    for (const TopicRow& row : topicsOf(db)) {
        BagTopic topic{row.name, row.type, 0, 0};
        Database::Statement s(db.prepare(
            "SELECT count(*), coalesce(sum(length(data)), 0) FROM messages WHERE topic_id = ?"));
        sqlite3_bind_int64(s.get(), 1, row.id);
        if (sqlite3_step(s.get()) == SQLITE_ROW) {
            topic.messages = uint64_t(sqlite3_column_int64(s.get(), 0));
            topic.bytes = uint64_t(sqlite3_column_int64(s.get(), 1));
        }
        topics.push_back(topic);
    }
    return topics;
}

BagResult compressSqliteBag(const std::string& in, const std::string& out,
                            const EncodeOptions& options, const BagProgress& progress) {
    return convertBag(
        in, out, kPointCloud2Type, kCompressedType, true,
        [&](const uint8_t* bytes, size_t size) {
            return compressMessage(bytes, size, Serialization::Ros2, options);
        },
        progress);
}

BagResult decompressSqliteBag(const std::string& in, const std::string& out,
                              const DecodeOptions& options, const BagProgress& progress) {
    return convertBag(
        in, out, kCompressedType, kPointCloud2Type, false,
        [&](const uint8_t* bytes, size_t size) {
            return decompressMessage(bytes, size, Serialization::Ros2, options);
        },
        progress);
}

}  // namespace zul::ros
