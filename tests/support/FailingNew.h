// While one of these lives, operator new asks the same gate as the counted allocator. Not while threads run.
#ifndef SUPPORT_FAILINGNEW_H
#define SUPPORT_FAILINGNEW_H

struct NewFails {
    NewFails();
    ~NewFails();
};

#endif
