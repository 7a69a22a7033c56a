// Prints "key=[value]" for each key given, as the property store read it from its file.

#include <cutils/properties.h>

#include <cstdio>

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        char value[PROPERTY_VALUE_MAX];
        property_get(argv[i], value, "");
        printf("%s=[%s]\n", argv[i], value);
    }
}
