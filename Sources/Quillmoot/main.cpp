#include <span>

#include "Program.h"

int main(int argumentCount, char** arguments) {
    return meetingcore::quillmoot::run({arguments, static_cast<std::size_t>(argumentCount)});
}
