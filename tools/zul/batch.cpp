#include "batch.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <set>

#include "commands/bag_command.h"
#include "commands/companion_restore.h"
#include "commands/file_kind.h"
#include "commands/input_spool.h"
#include "commands/output_file.h"
#include "commands/usage_error.h"
#include "formats/cloud.h"

namespace zultool {

using namespace zulconvert;
using namespace zulformats;

namespace {

namespace fs = std::filesystem;

// An input and the output it goes to.
struct Job {
    std::string input, output;
};

bool namesFolder(const std::string& output) {
    return !output.empty() && (output.back() == '/' || fs::is_directory(output));
}

// The jobs of a command line. `isOutput(second)` tells whether the second of two names is the
// output rather than another input (a name that does not exist cannot be an input);
// `outputName(input)` is the file name an input gets.
template <typename IsOutput, typename OutputName>
std::vector<Job> planJobs(const BatchNames& names, IsOutput isOutput, OutputName outputName) {
    std::vector<std::string> inputs = names.files;
    std::string output = names.output;
    if (inputs.empty()) throw UsageError("no input file given");
    if (output.empty() && inputs.size() == 2 && isOutput(inputs[1])) {
        output = inputs[1];
        inputs.pop_back();
    }
    // Standard input goes to standard output unless an output is named, as with gzip.
    if (output.empty() && inputs.size() == 1 && isStandardStream(inputs[0])) output = "-";
    const bool folder = namesFolder(output);
    if (!output.empty() && !folder && inputs.size() > 1) {
        throw UsageError("-o " + output + " names one file for " + std::to_string(inputs.size()) +
                         " inputs; name a folder (ending in /) instead");
    }
    if (folder && !fs::is_directory(output)) {
        std::error_code error;
        fs::create_directories(output, error);
        if (error)
            throw FormatError(output + ": cannot create the folder (" + error.message() + ")");
    }
    std::vector<Job> jobs;
    for (const std::string& input : inputs) {
        std::string name = output;
        if (output.empty()) {
            name = (fs::path(input).parent_path() / outputName(input)).string();
        } else if (folder) {
            name = (fs::path(output) / outputName(input)).string();
        }
        jobs.push_back({input, name});
    }
    return jobs;
}

std::string withExtension(const std::string& input, const char* extension) {
    return fs::path(input).filename().replace_extension(extension).string();
}

// Runs `one` for each job; reports each failure and goes on.
template <typename Options, typename Run>
int runJobs(const std::vector<Job>& jobs, Options options, bool force, Run one) {
    int failed = 0;
    std::set<std::string> written;
    for (const Job& job : jobs) {
        std::unique_ptr<InputSpool> spool;
        try {
            const std::string key = fs::weakly_canonical(job.output).string();
            if (!written.insert(key).second) {
                throw FormatError(job.output + ": already written from another input of this run");
            }
            if (!force && !writesThrough(job.output) && fs::exists(job.output))
                throw FormatError(existingOutputMessage(job.output));
            // A pipe or standard input is read once into a temporary file; messages name it as
            // the user did.
            spool = std::make_unique<InputSpool>(job.input);
            options.input = spool->path();
            options.inputName = spool->name();
            options.output = job.output;
            if (one(options) != 0) ++failed;
        } catch (const std::bad_alloc&) {
            std::cerr << "zul: " << job.input << ": out of memory\n";
            ++failed;
        } catch (const std::exception& error) {
            std::fflush(stdout);
            std::cerr << "zul: " << (spool ? spool->rename(error.what()) : error.what()) << "\n";
            ++failed;
        }
        spool.reset();
    }
    if (failed > 0 && jobs.size() > 1) {
        std::cerr << "zul: " << failed << " of " << jobs.size() << " files failed\n";
    }
    return failed > 0 ? 1 : 0;
}

}  // namespace

int runCompressBatch(const CompressOptions& options, const BatchNames& names) {
    const std::vector<Job> jobs = planJobs(
        names,
        [](const std::string& second) {
            return !fs::exists(second) || formatOfContent(second) == Format::Zul ||
                   fs::path(second).extension() == ".zul";
        },
        [](const std::string& input) {
            return isBag(input) ? compressedBagOutput(input) : withExtension(input, ".zul");
        });
    return runJobs(jobs, options, options.force, [](const CompressOptions& one) {
        return isBag(one.input) ? runCompressBag(one) : runCompress(one);
    });
}

int runDecompressBatch(const DecompressOptions& options, const BatchNames& names) {
    const char* extension =
        options.format.empty() ? nullptr : extensionOfFormat(formatOfName(options.format));
    const std::vector<Job> jobs = planJobs(
        names,
        [](const std::string& second) {
            return !fs::exists(second) || (fs::path(second).extension() != ".zul" &&
                                           formatOfContent(second) != Format::Zul);
        },
        [&](const std::string& input) -> std::string {
            if (isBag(input)) return restoredBagOutput(input);
            // The companion knows the input's own format and name.
            const std::string own = extension ? "" : companionOutputName(input);
            if (!own.empty()) return own;
            if (extension == nullptr) {
                throw UsageError("decompress " + input +
                                 ": name the output (-o NAME.las, .ply, ...) or choose its format "
                                 "(--format las, ply, pcd, xyz, csv or bin)");
            }
            return withExtension(input, extension);
        });
    return runJobs(jobs, options, options.force, [](const DecompressOptions& one) {
        if (isBag(one.input)) return runDecompressBag(one);
        const std::optional<Format> content = formatOfContent(one.input);
        if (content && *content != Format::Zul) {
            throw FormatError(one.input + ": is a " + formatName(*content) +
                              " file, not a zul file; compress turns it into one");
        }
        return runDecompress(one);
    });
}

}  // namespace zultool
