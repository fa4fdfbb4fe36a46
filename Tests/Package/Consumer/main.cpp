#include "EveryHeader.h"

int main() {
    // The test vector "abc" of FIPS 180-4.
    const bool right =
        meetingcore::SHA256::hex("abc") == "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    return right ? 0 : 1;
}
