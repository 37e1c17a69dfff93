#include "app/MirrowispApp.h"

int main(int argc, char** argv) {
    return mirrowisp::runMirrowisp(argc, argv);
}
