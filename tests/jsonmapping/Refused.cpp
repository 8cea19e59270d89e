#include "morvellacinto/jsonmapping/AVJSON.h"

using namespace morvellacinto;

// What must not compile, one a case, with the sentence that tells why.

class Described : public AVObject {
    AVJSON_CLASS(Described, AVObject)
};
#if CASE == 1 // AVJSON_CLASS names another base than the nearest described one
class Skipping : public Described {
    AVJSON_CLASS(Skipping, AVObject)
};
#elif CASE == 2 // AVJSON_CLASS_TAKES_AT_MOST_86_MEMBERS
#define ELEVEN a, a, a, a, a, a, a, a, a, a, a
struct Large {
    AVJSON_CLASS(Large, void, ELEVEN, ELEVEN, ELEVEN, ELEVEN, ELEVEN, ELEVEN, ELEVEN, ELEVEN)

    int a = 0;
};
#elif CASE == 3 // AVJSON_CLASS names another class than the one that it stands in
struct Renamed {
    AVJSON_CLASS(Described, void)
};
#elif CASE == 4 // no property can have this type
struct Holder {
    AVJSON_CLASS(Holder, void, held)

    Described held;
};
#elif CASE == 5 // a described base is virtual
struct Base {
    AVJSON_CLASS(Base, void)
};
struct Derived : virtual Base {
    AVJSON_CLASS(Derived, Base)
};
#endif
