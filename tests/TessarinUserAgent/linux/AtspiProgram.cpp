// An application of its own process for the tests: AtspiProgram BUS_ADDRESS. Prints its bus name, then does
// what the lines of its input say and answers each with a line.
//   window TITLE|URL      prints the paths of frame and field, parted by a blank
//   edit PATH|TEXT
//   activate PATH|TITLE
//   name NAME             of the application

#include <QCoreApplication>
#include <iostream>
#include <string>

#include "AtspiApplication.h"

namespace {

std::string Obey(fake::AtspiApplication& application, const std::string& command, const std::string& first,
                 const std::string& second) {
    if (command == "window") {
        const auto window = application.addWindow(first, second);
        return window.frame + " " + window.field;
    }
    if (command == "edit") {
        application.edit(first, second);
    } else if (command == "activate") {
        application.activate(first, second);
    } else if (command == "name") {
        application.change(fake::AtspiApplication::kRoot, [&](fake::AtspiNode& root) { root.name = first; });
    } else {
        return "unknown command";
    }
    return "done";
}

}  // namespace

int main(int argc, char** argv) {
    const QCoreApplication qt(argc, argv);
    if (argc != 2) {
        return 2;
    }
    fake::AtspiApplication application(argv[1]);
    std::cout << application.busName() << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        const std::size_t blank = line.find(' ');
        const std::size_t bar = line.find('|');
        const std::string first = line.substr(blank + 1, bar == std::string::npos ? bar : bar - blank - 1);
        std::cout << Obey(application, line.substr(0, blank), first,
                          bar == std::string::npos ? "" : line.substr(bar + 1))
                  << std::endl;
    }
    return 0;
}
