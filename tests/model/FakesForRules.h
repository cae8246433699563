// A rule language for tests of this floor: the common words, and "uri" and "port" of the fake request.
#ifndef MODEL_FAKESFORRULES_H
#define MODEL_FAKESFORRULES_H

#include "FakeHttpContext.h"

// Returns new (langFree).
Language *fakeHttpLanguageCreate();

// An instance with that language, and a request context on it.
class RulesTest : public ModelTest {
protected:
    void SetUp() override;
    void TearDown() override;
    TavHttpContext request(const char *path);
};

#endif
