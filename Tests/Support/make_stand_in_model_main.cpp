#include <iostream>

#include "Support/FileContent.h"
#include "Support/StandInModel.h"

int main(int argumentCount, char** arguments) {
    using namespace meetingcore::testing;
    if (argumentCount != 5) {
        std::cerr << "usage: make-stand-in-model SUMMARY.json TITLE.json MODEL.gguf CATALOG.json\n"
                     "Writes a model that answers with the two given objects, and a catalog that names it.\n";
        return 2;
    }
    try {
        const auto script = StandInScript::answering(contentOf(arguments[1]), contentOf(arguments[2]));
        writeStandInModel(arguments[3], script);
        writeCatalog(arguments[4], arguments[3]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "make-stand-in-model: " << error.what() << '\n';
        return 1;
    }
}
