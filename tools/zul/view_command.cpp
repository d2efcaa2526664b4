// `zul view`: serves the viewer page (the web folder of the build or the install) and the named
// files on 127.0.0.1, prints an address a file, and opens the first in a browser when a desktop
// is at hand.
#include "view_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "commands/usage_error.h"
#include "loopback_server.h"

extern char** environ;

namespace zultool {

namespace fs = std::filesystem;

namespace {

bool holdsPage(const fs::path& folder) {
    std::error_code error;
    return fs::is_regular_file(folder / "page" / "index.html", error) &&
           fs::is_regular_file(folder / "dist" / "zul_wasm.wasm", error);
}

// The name a file is served under: its own, with what a URL path cannot carry plainly replaced.
std::string servedName(const std::string& path) {
    std::string name = fs::path(path).filename().string();
    for (char& c : name) {
        const bool plain =
            std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '_';
        if (!plain) c = '_';
    }
    return name.empty() || name[0] == '.' ? "file" + name : name;
}

// Starts `xdg-open url` without waiting for it; false when there is no desktop to open it on.
bool openBrowser(const std::string& url) {
    if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) return false;
    const char* argv[] = {"xdg-open", url.c_str(), nullptr};
    pid_t pid = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const int failed =
        posix_spawnp(&pid, "xdg-open", &actions, nullptr, const_cast<char**>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed == 0;
}

}  // namespace

void addViewOptions(CLI::App& app, ViewOptions& options) {
    app.add_option("files", options.inputs, "zul files");
    app.add_option("--port", options.port, "the loopback port to serve on (default: a free one)")
        ->check(CLI::Range(0, 65535));
    app.add_flag("--no-open", options.noOpen, "print the address, open no browser");
}

std::string findWebRoot() {
    if (const char* given = std::getenv("ZUL_WEB_ROOT")) return holdsPage(given) ? given : "";
    std::error_code error;
    const fs::path tool = fs::read_symlink("/proc/self/exe", error);
    if (error) return "";
    // Installed: PREFIX/bin/zul and PREFIX/share/zul/web; built: the tool a folder or two below
    // the build folder, which holds share/zul/web.
    fs::path folder = tool.parent_path();
    for (int up = 0; up < 3 && folder.has_parent_path(); ++up) {
        folder = folder.parent_path();
        if (holdsPage(folder / "share" / "zul" / "web"))
            return (folder / "share" / "zul" / "web").string();
    }
    return "";
}

int runView(const ViewOptions& options) {
    if (options.inputs.empty()) throw zulconvert::UsageError("no input file given");
    std::vector<std::string> names;
    for (const std::string& input : options.inputs) {
        std::error_code error;
        if (!fs::is_regular_file(input, error)) {
            std::cerr << "zul: " << input << ": no such file\n";
            return 1;
        }
        names.push_back(servedName(input));
    }
    const std::string root = findWebRoot();
    if (root.empty()) {
        std::cerr << "zul: the viewer page is missing (share/zul/web beside the tool, or "
                     "ZUL_WEB_ROOT): build with -DZUL_BUILD_WEB=ON\n";
        return 1;
    }
    // /files/N/NAME is input N; the page's own files come from the web folder.
    LoopbackServer::Routes routes;
    routes.file = [&](const std::string& path) -> std::string {
        if (path.rfind("/files/", 0) == 0) {
            const size_t slash = path.find('/', 7);
            const std::string number = path.substr(7, slash == std::string::npos ? 0 : slash - 7);
            if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos ||
                number.size() > 6)
                return "";
            const size_t k = std::stoul(number);
            return k < names.size() && path.substr(slash + 1) == names[k] ? options.inputs[k] : "";
        }
        for (const char* folder : {"/page/", "/src/", "/dist/", "/vendor/"}) {
            if (path.rfind(folder, 0) == 0) return root + path;
        }
        return "";
    };
    const auto address = [&](size_t k) {
        return "/page/index.html?url=/files/" + std::to_string(k) + "/" + names[k];
    };
    routes.redirect = [&](const std::string& path) { return path == "/" ? address(0) : ""; };
    LoopbackServer server(routes);
    try {
        server.listen(options.port);
    } catch (const std::runtime_error& error) {
        std::cerr << "zul: " << error.what() << "\n";
        return 1;
    }
    const std::string base = "http://127.0.0.1:" + std::to_string(server.port());
    for (size_t k = 0; k < names.size(); ++k)
        std::cout << options.inputs[k] << ": " << base << address(k) << "\n";
    if (options.noOpen || !openBrowser(base + address(0))) {
        if (!options.noOpen) std::cout << "No desktop browser at hand: open the address above.\n";
    }
    std::cout << "Serving on " << base << "/ until interrupted (Ctrl-C)." << std::endl;
    server.run();
}

}  // namespace zultool
