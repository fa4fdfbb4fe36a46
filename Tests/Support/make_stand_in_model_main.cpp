#include <iostream>

#include "Support/FileContent.h"
#include "Support/StandInModel.h"

int main(int argumentCount, char** arguments) {
    namespace testing = meetingcore::testing;
    if (argumentCount != 5) {
        std::cerr << "usage: make-stand-in-model SUMMARY.json TITLE.json MODEL.gguf CATALOG.json\n"
                     "Writes a model that answers with the two given objects, and a catalog that names it.\n";
        return 2;
    }
    try {
        const auto script = testing::StandInScript::answering(testing::contentOf(arguments[1]),
                                                              testing::contentOf(arguments[2]));
        testing::writeStandInModel(arguments[3], script);
        testing::writeCatalog(arguments[4], arguments[3]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "make-stand-in-model: " << error.what() << '\n';
        return 1;
    }
}
