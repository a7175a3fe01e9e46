// SPDX-License-Identifier: Apache-2.0
// Keyed lists.
#include <gtest/gtest.h>

#include <vector>

#include "indxobj.h"

namespace {

int compare_ints(const void *a, const void *b) {
    const int x = *static_cast<const int *>(a);
    const int y = *static_cast<const int *>(b);
    return x == y ? 0 : x < y ? 1 : -1;
}

class Indxobj : public testing::Test {
  protected:
    Indxobj() { EXPECT_EQ(INDXOBJ_CREATED, indxobj_create(&list, 0, 1, compare_ints, 1)); }
    ~Indxobj() override { indxobj_destroy(&list); }

    indxobj_list list = {};
    int one = 1;
    int two = 2;
};

TEST_F(Indxobj, WhatWasAddedIsFoundByAnEqualKey) {
    EXPECT_NE(0, indxobj_add(&list, &one, &one));
    EXPECT_NE(0, indxobj_add(&list, &two, &two));
    const int key = 2;
    EXPECT_EQ(&two, indxobj_find(&list, &key, 0));
    EXPECT_EQ(&two, indxobj_find(&list, &key, 0)) << "finding leaves it on the list";
}

TEST_F(Indxobj, AnUnknownKeyFindsAndRemovesNothing) {
    EXPECT_EQ(nullptr, indxobj_find(&list, &one, 0));
    EXPECT_EQ(nullptr, indxobj_remove(&list, &one));
    EXPECT_NE(0, indxobj_add(&list, &one, &one));
    EXPECT_EQ(nullptr, indxobj_find(&list, &two, 0));
    EXPECT_EQ(nullptr, indxobj_remove(&list, &two));
}

TEST_F(Indxobj, RemovingUnlinksAndReturnsTheData) {
    indxobj_add(&list, &one, &one);
    indxobj_add(&list, &two, &two);
    EXPECT_EQ(&one, indxobj_remove(&list, &one));
    EXPECT_EQ(nullptr, indxobj_find(&list, &one, 0));
    EXPECT_EQ(nullptr, indxobj_remove(&list, &one));
    EXPECT_EQ(&two, indxobj_find(&list, &two, 0));
    EXPECT_NE(0, indxobj_add(&list, &one, &one));
}

TEST_F(Indxobj, AKeyAlreadyThereIsRefusedAndTheFirstDataKept) {
    int other = 5;
    indxobj_add(&list, &one, &one);
    EXPECT_EQ(0, indxobj_add(&list, &one, &other));
    EXPECT_EQ(&one, indxobj_find(&list, &one, 0));
    EXPECT_EQ(&one, indxobj_remove(&list, &one));
    EXPECT_EQ(nullptr, indxobj_find(&list, &one, 0));
}

TEST_F(Indxobj, ThousandsOfKeysInAnyOrder) {
    std::vector<int> keys(4096);
    for (size_t i = 0; i < keys.size(); ++i) {
        keys[i] = static_cast<int>(i * 1103 % 4096);
        ASSERT_NE(0, indxobj_add(&list, &keys[i], &keys[i]));
    }
    for (int key = 0; key < 4096; key += 2) {
        ASSERT_NE(nullptr, indxobj_remove(&list, &key));
    }
    for (int key = 0; key < 4096; ++key) {
        const int *found = static_cast<int *>(indxobj_find(&list, &key, 0));
        ASSERT_EQ(key % 2 == 1, found != nullptr);
        ASSERT_TRUE(found == nullptr || *found == key);
    }
}

TEST_F(Indxobj, ASecondCreateKeepsTheContent) {
    indxobj_add(&list, &one, &one);
    EXPECT_EQ(INDXOBJ_CREATED, indxobj_create(&list, 0, 1, compare_ints, 1));
    EXPECT_EQ(&one, indxobj_find(&list, &one, 0));
}

TEST_F(Indxobj, ASecondDestroyIsLeftAlone) {
    indxobj_add(&list, &one, &one);
    indxobj_destroy(&list);
    indxobj_destroy(&list);
    EXPECT_EQ(1, one) << "the data are the caller's";
    EXPECT_EQ(INDXOBJ_CREATED, indxobj_create(&list, 0, 1, compare_ints, 1));
    EXPECT_EQ(nullptr, indxobj_find(&list, &one, 0));
}

TEST_F(Indxobj, ADestroyedListTakesAndHoldsNothing) {
    indxobj_destroy(&list);
    EXPECT_EQ(0, indxobj_add(&list, &one, &one));
    EXPECT_EQ(nullptr, indxobj_find(&list, &one, 0));
    EXPECT_EQ(nullptr, indxobj_remove(&list, &one));
}

TEST(IndxobjKinds, OtherKindsOfListAreRefused) {
    indxobj_list list = {};
    EXPECT_NE(INDXOBJ_CREATED, indxobj_create(&list, 1, 1, compare_ints, 1));
    EXPECT_NE(INDXOBJ_CREATED, indxobj_create(&list, 0, 0, compare_ints, 1));
    EXPECT_NE(INDXOBJ_CREATED, indxobj_create(&list, 0, 1, compare_ints, 0));
    EXPECT_NE(INDXOBJ_CREATED, indxobj_create(&list, 0, 1, nullptr, 1));
    EXPECT_NE(INDXOBJ_CREATED, indxobj_create(nullptr, 0, 1, compare_ints, 1));
    EXPECT_EQ(nullptr, list.impl);
}

} // namespace
