#include "tav/vinta/vinta_pml_meta.h"

#include "support/failing_allocations.h"

#include <gtest/gtest.h>

#include <utility>

using tav::pml::MetaClass;
using tav_test::FailingAllocation;

TEST(MetaMove, OfAClassAllocatesNothing) {
    tav::pml::PmlInputStream in(
        tav_istr("Hello:object(__class__(im.Hello)__code__(1F01)__import__(a/b)[1]user:string()"
                 "[2]tags:list{string}()[3]inner:object{Inner}([1]x:int32(1{0..9})))"));
    tav::pml::MetaFactory const factory(in);
    ASSERT_NE(factory.findClass("im.Hello"), nullptr);
    MetaClass const & read = *factory.findClass("im.Hello");
    MetaClass from(read);
    ASSERT_LT(0u, from.fields.size());
    FailingAllocation const failing(1);
    MetaClass made(std::move(from));
    MetaClass assigned(std::move(made));
    made = std::move(assigned);
    EXPECT_FALSE(FailingAllocation::happened());
    EXPECT_EQ(read.fields.size(), made.fields.size());
    EXPECT_EQ(made.className, "im.Hello");
}
