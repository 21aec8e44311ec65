#include <gtest/gtest.h>

#include <utility>

#include "common_mac/CFAutoPointer.h"

namespace {

using cmn::CFAutoPointer;

TEST(CFAutoPointerTest, TakesOverAReferenceWithoutRetainingIt) {
    const CountedObject object;
    {
        const CFAutoPointer pointer(&object);
        EXPECT_EQ(pointer.get(), &object);
        EXPECT_EQ(object.owners, 1);
    }
    EXPECT_EQ(object.owners, 0);
}

TEST(CFAutoPointerTest, HoldsNothingByDefaultAndForNull) {
    const CFAutoPointer none;
    const CFAutoPointer null(nullptr);
    const CFAutoPointer shared = CFAutoPointer::Retained(nullptr);
    const CFAutoPointer copy(none);  // NOLINT(performance-unnecessary-copy-initialization)
    for (const CFAutoPointer* pointer : {&none, &null, &shared, &copy}) {
        EXPECT_EQ(pointer->get(), nullptr);
        EXPECT_FALSE(*pointer);
        EXPECT_EQ(pointer->as<const CountedObject*>(0), nullptr);
    }
}

TEST(CFAutoPointerTest, ACopyOwnsTheObjectToo) {
    const CountedObject object;
    {
        const CFAutoPointer pointer(&object);
        {
            const CFAutoPointer copy(pointer);  // NOLINT(performance-unnecessary-copy-initialization)
            EXPECT_EQ(copy.get(), &object);
            EXPECT_EQ(object.owners, 2);
        }
        EXPECT_EQ(object.owners, 1);
    }
    EXPECT_EQ(object.owners, 0);
}

TEST(CFAutoPointerTest, AMoveLeavesTheSourceEmpty) {
    const CountedObject object;
    {
        CFAutoPointer source(&object);
        const CFAutoPointer target(std::move(source));
        EXPECT_EQ(source.get(), nullptr);  // NOLINT(bugprone-use-after-move)
        EXPECT_TRUE(target);
        EXPECT_EQ(object.owners, 1);
    }
    EXPECT_EQ(object.owners, 0);
}

TEST(CFAutoPointerTest, AnAssignmentReleasesTheOldReferenceOnce) {
    const CountedObject first;
    const CountedObject second;
    const CountedObject third;
    {
        CFAutoPointer pointer(&first);
        const CFAutoPointer other(&second);
        pointer = other;
        EXPECT_EQ(first.owners, 0);
        EXPECT_EQ(second.owners, 2);
        pointer = &third;  // a reference that is taken over
        EXPECT_EQ(second.owners, 1);
        EXPECT_EQ(third.owners, 1);
        pointer = CFAutoPointer();
        EXPECT_EQ(third.owners, 0);
    }
    EXPECT_EQ(first.owners, 0);
    EXPECT_EQ(second.owners, 0);
    EXPECT_EQ(third.owners, 0);
}

TEST(CFAutoPointerTest, AnAssignmentOfItselfChangesNothing) {
    const CountedObject object;
    {
        CFAutoPointer pointer(&object);
        const CFAutoPointer& itself = pointer;
        pointer = itself;
        EXPECT_EQ(pointer.get(), &object);
        EXPECT_EQ(object.owners, 1);
    }
    EXPECT_EQ(object.owners, 0);
}

TEST(CFAutoPointerTest, SharesAnObjectOfSomebodyElse) {
    const CountedObject object;
    {
        const CFAutoPointer pointer = CFAutoPointer::Retained(&object);
        EXPECT_EQ(object.owners, 2);
    }
    EXPECT_EQ(object.owners, 1);
}

TEST(CFAutoPointerTest, GivesTheObjectOfOneTypeOnly) {
    const CountedObject object{7};
    const CFAutoPointer pointer(&object);
    EXPECT_EQ(pointer.as<const CountedObject*>(7), &object);
    EXPECT_EQ(pointer.as<const CountedObject*>(8), nullptr);
    EXPECT_EQ(object.owners, 1);
}

TEST(CFAutoPointerTest, TakesOverWhatAFunctionHandsOut) {
    const CountedObject before;
    const CountedObject handedOut;
    {
        CFAutoPointer pointer(&before);
        CFTypeRef* const place = pointer.out();
        EXPECT_EQ(before.owners, 0);
        EXPECT_EQ(*place, nullptr);
        *place = &handedOut;
        EXPECT_EQ(pointer.get(), &handedOut);
        EXPECT_EQ(handedOut.owners, 1);
    }
    EXPECT_EQ(handedOut.owners, 0);
}

}  // namespace
