#include <SupportRoutines.h>

int main() {
    return vx::BytesToHex(vx::HexToBytes("0AFF")) == "0AFF" ? 0 : 1;
}
