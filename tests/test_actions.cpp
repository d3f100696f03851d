// The action registry: order, limits and exact names.
#include <gtest/gtest.h>

#include "actions.h"
#include "env.h"
#include "log.h"

namespace
{

int first_action(session_t*)
{
    return 11;
}
int second_action(session_t*)
{
    return 22;
}

TEST(Actions, BuiltinsAreFoundByExactNameAndFirstWins)
{
    session_t session;
    EXPECT_EQ(actions_execute(&session, "env_save"), -1); // nothing before init
    ASSERT_EQ(actions_init(&session), 0);
    EXPECT_EQ(actions_is_valid(&session, "env_save"), 0);
    EXPECT_EQ(actions_is_valid(&session, "Env_save"), -1);
    ASSERT_EQ(actions_register(&session, "mine", first_action), 0);
    ASSERT_EQ(actions_register(&session, "mine", second_action), 0);
    EXPECT_EQ(actions_execute(&session, "mine"), 11);
    EXPECT_EQ(actions_register(&session, "x", nullptr), -1);
}

TEST(Actions, TableHoldsExactly1025Entries)
{
    session_t session;
    ASSERT_EQ(actions_init(&session), 0);
    int added = 0;
    while (actions_register(&session, "filler", first_action) == 0)
        added++;
    EXPECT_EQ(session.actions_last + 1, 1025);
    EXPECT_GT(added, 1000);
}

} // namespace
