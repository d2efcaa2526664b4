// `zul view FILE...`: the viewer page and the files on a loopback port, in a browser.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace zultool {

struct ViewOptions {
    std::vector<std::string> inputs;
    int port = 0;  // 0: a free port
    bool noOpen = false;
};

void addViewOptions(CLI::App& app, ViewOptions& options);
// Serves until interrupted; returns 1 if a file or the page cannot be served.
int runView(const ViewOptions& options);

// The folder of the viewer page: $ZUL_WEB_ROOT, else share/zul/web in the tool's folder's
// parent (as installed) or in the folder one or two above that (the build folder); "" when none
// holds the page.
std::string findWebRoot();

}  // namespace zultool
