// hello: a host program against the installed library. Makes a data list,
// stores two records, reads them back and prints "ok" when they survived.
#include <ncodecbase/ncodecbase.h>

#include <cstdio>
#include <cstring>

int main() {
    CNDataList* list = CNDataList::NewDataList();
    if (!list) return 1;
    bool ok = false;
    try {
        const char greeting[] = "hello";
        list->InsertBinary("greeting", greeting, sizeof(greeting), -1, 0);
        list->InsertUint32("answer", 42, 0, 0);
        ok = list->GetParameterCount() == 2 && list->GetUint32(0) == 42 &&
             std::strcmp(list->GetKey(1), "greeting") == 0 &&
             std::strcmp(static_cast<const char*>(list->GetBinaryData(1)), "hello") == 0;
    } catch (CNException* e) {
        e->FreeMe();
    }
    list->FreeMe();
    std::puts(ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
