#ifndef MODEL_FAKESFORRULES_H
#define MODEL_FAKESFORRULES_H

#include "FakeHttpContext.h"

// An instance with a rule language of the common words and the "uri" of the fake request, and a request context on it.
class RulesTest : public ModelTest {
protected:
    void SetUp() override;
    void TearDown() override;
    TavHttpContext request(const char *path);
};

#endif
