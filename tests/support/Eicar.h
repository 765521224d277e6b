// Eicar.h: the industry's harmless test string.
#ifndef TESTS_SUPPORT_EICAR_H
#define TESTS_SUPPORT_EICAR_H

#include <string>

// Put together here so that no scanner flags this file.
inline std::string eicar() {
    return std::string("X5O!P%@AP[4\\PZX54(P^)7CC)7}$") + "EICAR-STANDARD" + "-ANTIVIRUS-TEST" + "-FILE!$H+H*";
}

#endif  // TESTS_SUPPORT_EICAR_H
