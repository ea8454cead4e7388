#include "Picture.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "fxds/Exec.h"
#include "fxds/Network.h"
#include "fxds/Process.h"

fxStr drawNetwork(fxObj& object, const fxStr& path) {
    const std::string name = path.c_str();
    const size_t point = name.rfind('.');
    const std::string ending = point != std::string::npos ? name.substr(point + 1) : "";
    if (ending.empty() || ending.find('/') != std::string::npos) {
        return path | ": a name that ends in .dot, .svg, .png or the like is wanted";
    }
    std::ostringstream text;
    fxDumpNetwork(text, &object);
    if (ending == "dot" || ending == "gv") {
        std::ofstream file(name);
        file << text.str() << std::flush;
        return file ? fxStr() : fxStr(path | ": " | std::strerror(errno));
    }
    fxCommand command({"dot", ("-T" + ending).c_str(), "-o", name.c_str()});
    command.input = fxCommand::piped;
    fxProcess graphviz(command);
    if (!graphviz.isRunning()) {
        return path | ": dot, of Graphviz, cannot be run: " | std::strerror(graphviz.getError());
    }
    graphviz.input()->write(text.str());
    graphviz.input()->finish();
    while (graphviz.isRunning()) fx_theExecutive->poll(1);
    return graphviz.getStatus() == 0 ? fxStr() : fxStr(path | ": Graphviz cannot draw this");
}
