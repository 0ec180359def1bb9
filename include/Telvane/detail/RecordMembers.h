/// \file
/// Checks the types of a record's members, so that the compiler names a member that is not supported.
///
/// Included by RecordTable.h. The numbered macros apply a check to each of up to 100 members.
#pragma once

/// \cond
/// Checks the type of each member of a class.
#define TELVANE_CHECK_MEMBERS(Class, ...)                                                                    \
    TELVANE_JOIN(TELVANE_CHECK_, TELVANE_COUNT(__VA_ARGS__))(Class, __VA_ARGS__)

#define TELVANE_CHECK_MEMBER(Class, member)                                                                  \
    static_assert(                                                                                           \
        ::Telvane::Detail::kIsField<decltype(Class::member)>,                                                \
        #Class "::" #member                                                                                  \
               " has a type that records do not support. Supported are bool, integers, float, double, "      \
               "enumerations, std::string and records; std::optional, std::vector, std::map and "            \
               "std::unordered_map with keys of std::string, of these; arrays of bool, int and records.");

#define TELVANE_JOIN(first, second) TELVANE_JOIN_EXPANDED(first, second)
#define TELVANE_JOIN_EXPANDED(first, second) first##second

#define TELVANE_COUNT(...)                                                                                   \
    TELVANE_COUNT_OF(__VA_ARGS__, 100, 99, 98, 97, 96, 95, 94, 93, 92, 91, 90, 89, 88, 87, 86, 85, 84, 83,   \
                     82, 81, 80, 79, 78, 77, 76, 75, 74, 73, 72, 71, 70, 69, 68, 67, 66, 65, 64, 63, 62, 61, \
                     60, 59, 58, 57, 56, 55, 54, 53, 52, 51, 50, 49, 48, 47, 46, 45, 44, 43, 42, 41, 40, 39, \
                     38, 37, 36, 35, 34, 33, 32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, \
                     16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0)
#define TELVANE_COUNT_OF(                                                                                    \
    a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15, a16, a17, a18, a19, a20, a21, a22,     \
    a23, a24, a25, a26, a27, a28, a29, a30, a31, a32, a33, a34, a35, a36, a37, a38, a39, a40, a41, a42, a43, \
    a44, a45, a46, a47, a48, a49, a50, a51, a52, a53, a54, a55, a56, a57, a58, a59, a60, a61, a62, a63, a64, \
    a65, a66, a67, a68, a69, a70, a71, a72, a73, a74, a75, a76, a77, a78, a79, a80, a81, a82, a83, a84, a85, \
    a86, a87, a88, a89, a90, a91, a92, a93, a94, a95, a96, a97, a98, a99, a100, count, ...)                  \
    count

#define TELVANE_CHECK_1(Class, member) TELVANE_CHECK_MEMBER(Class, member)
#define TELVANE_CHECK_2(Class, member, ...)                                                                  \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_1(Class, __VA_ARGS__)
#define TELVANE_CHECK_3(Class, member, ...)                                                                  \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_2(Class, __VA_ARGS__)
#define TELVANE_CHECK_4(Class, member, ...)                                                                  \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_3(Class, __VA_ARGS__)
#define TELVANE_CHECK_5(Class, member, ...)                                                                  \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_4(Class, __VA_ARGS__)
#define TELVANE_CHECK_6(Class, member, ...)                                                                  \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_5(Class, __VA_ARGS__)
#define TELVANE_CHECK_7(Class, member, ...)                                                                  \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_6(Class, __VA_ARGS__)
#define TELVANE_CHECK_8(Class, member, ...)                                                                  \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_7(Class, __VA_ARGS__)
#define TELVANE_CHECK_9(Class, member, ...)                                                                  \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_8(Class, __VA_ARGS__)
#define TELVANE_CHECK_10(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_9(Class, __VA_ARGS__)
#define TELVANE_CHECK_11(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_10(Class, __VA_ARGS__)
#define TELVANE_CHECK_12(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_11(Class, __VA_ARGS__)
#define TELVANE_CHECK_13(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_12(Class, __VA_ARGS__)
#define TELVANE_CHECK_14(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_13(Class, __VA_ARGS__)
#define TELVANE_CHECK_15(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_14(Class, __VA_ARGS__)
#define TELVANE_CHECK_16(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_15(Class, __VA_ARGS__)
#define TELVANE_CHECK_17(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_16(Class, __VA_ARGS__)
#define TELVANE_CHECK_18(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_17(Class, __VA_ARGS__)
#define TELVANE_CHECK_19(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_18(Class, __VA_ARGS__)
#define TELVANE_CHECK_20(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_19(Class, __VA_ARGS__)
#define TELVANE_CHECK_21(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_20(Class, __VA_ARGS__)
#define TELVANE_CHECK_22(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_21(Class, __VA_ARGS__)
#define TELVANE_CHECK_23(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_22(Class, __VA_ARGS__)
#define TELVANE_CHECK_24(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_23(Class, __VA_ARGS__)
#define TELVANE_CHECK_25(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_24(Class, __VA_ARGS__)
#define TELVANE_CHECK_26(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_25(Class, __VA_ARGS__)
#define TELVANE_CHECK_27(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_26(Class, __VA_ARGS__)
#define TELVANE_CHECK_28(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_27(Class, __VA_ARGS__)
#define TELVANE_CHECK_29(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_28(Class, __VA_ARGS__)
#define TELVANE_CHECK_30(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_29(Class, __VA_ARGS__)
#define TELVANE_CHECK_31(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_30(Class, __VA_ARGS__)
#define TELVANE_CHECK_32(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_31(Class, __VA_ARGS__)
#define TELVANE_CHECK_33(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_32(Class, __VA_ARGS__)
#define TELVANE_CHECK_34(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_33(Class, __VA_ARGS__)
#define TELVANE_CHECK_35(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_34(Class, __VA_ARGS__)
#define TELVANE_CHECK_36(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_35(Class, __VA_ARGS__)
#define TELVANE_CHECK_37(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_36(Class, __VA_ARGS__)
#define TELVANE_CHECK_38(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_37(Class, __VA_ARGS__)
#define TELVANE_CHECK_39(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_38(Class, __VA_ARGS__)
#define TELVANE_CHECK_40(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_39(Class, __VA_ARGS__)
#define TELVANE_CHECK_41(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_40(Class, __VA_ARGS__)
#define TELVANE_CHECK_42(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_41(Class, __VA_ARGS__)
#define TELVANE_CHECK_43(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_42(Class, __VA_ARGS__)
#define TELVANE_CHECK_44(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_43(Class, __VA_ARGS__)
#define TELVANE_CHECK_45(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_44(Class, __VA_ARGS__)
#define TELVANE_CHECK_46(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_45(Class, __VA_ARGS__)
#define TELVANE_CHECK_47(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_46(Class, __VA_ARGS__)
#define TELVANE_CHECK_48(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_47(Class, __VA_ARGS__)
#define TELVANE_CHECK_49(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_48(Class, __VA_ARGS__)
#define TELVANE_CHECK_50(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_49(Class, __VA_ARGS__)
#define TELVANE_CHECK_51(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_50(Class, __VA_ARGS__)
#define TELVANE_CHECK_52(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_51(Class, __VA_ARGS__)
#define TELVANE_CHECK_53(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_52(Class, __VA_ARGS__)
#define TELVANE_CHECK_54(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_53(Class, __VA_ARGS__)
#define TELVANE_CHECK_55(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_54(Class, __VA_ARGS__)
#define TELVANE_CHECK_56(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_55(Class, __VA_ARGS__)
#define TELVANE_CHECK_57(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_56(Class, __VA_ARGS__)
#define TELVANE_CHECK_58(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_57(Class, __VA_ARGS__)
#define TELVANE_CHECK_59(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_58(Class, __VA_ARGS__)
#define TELVANE_CHECK_60(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_59(Class, __VA_ARGS__)
#define TELVANE_CHECK_61(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_60(Class, __VA_ARGS__)
#define TELVANE_CHECK_62(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_61(Class, __VA_ARGS__)
#define TELVANE_CHECK_63(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_62(Class, __VA_ARGS__)
#define TELVANE_CHECK_64(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_63(Class, __VA_ARGS__)
#define TELVANE_CHECK_65(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_64(Class, __VA_ARGS__)
#define TELVANE_CHECK_66(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_65(Class, __VA_ARGS__)
#define TELVANE_CHECK_67(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_66(Class, __VA_ARGS__)
#define TELVANE_CHECK_68(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_67(Class, __VA_ARGS__)
#define TELVANE_CHECK_69(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_68(Class, __VA_ARGS__)
#define TELVANE_CHECK_70(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_69(Class, __VA_ARGS__)
#define TELVANE_CHECK_71(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_70(Class, __VA_ARGS__)
#define TELVANE_CHECK_72(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_71(Class, __VA_ARGS__)
#define TELVANE_CHECK_73(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_72(Class, __VA_ARGS__)
#define TELVANE_CHECK_74(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_73(Class, __VA_ARGS__)
#define TELVANE_CHECK_75(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_74(Class, __VA_ARGS__)
#define TELVANE_CHECK_76(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_75(Class, __VA_ARGS__)
#define TELVANE_CHECK_77(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_76(Class, __VA_ARGS__)
#define TELVANE_CHECK_78(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_77(Class, __VA_ARGS__)
#define TELVANE_CHECK_79(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_78(Class, __VA_ARGS__)
#define TELVANE_CHECK_80(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_79(Class, __VA_ARGS__)
#define TELVANE_CHECK_81(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_80(Class, __VA_ARGS__)
#define TELVANE_CHECK_82(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_81(Class, __VA_ARGS__)
#define TELVANE_CHECK_83(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_82(Class, __VA_ARGS__)
#define TELVANE_CHECK_84(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_83(Class, __VA_ARGS__)
#define TELVANE_CHECK_85(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_84(Class, __VA_ARGS__)
#define TELVANE_CHECK_86(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_85(Class, __VA_ARGS__)
#define TELVANE_CHECK_87(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_86(Class, __VA_ARGS__)
#define TELVANE_CHECK_88(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_87(Class, __VA_ARGS__)
#define TELVANE_CHECK_89(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_88(Class, __VA_ARGS__)
#define TELVANE_CHECK_90(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_89(Class, __VA_ARGS__)
#define TELVANE_CHECK_91(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_90(Class, __VA_ARGS__)
#define TELVANE_CHECK_92(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_91(Class, __VA_ARGS__)
#define TELVANE_CHECK_93(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_92(Class, __VA_ARGS__)
#define TELVANE_CHECK_94(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_93(Class, __VA_ARGS__)
#define TELVANE_CHECK_95(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_94(Class, __VA_ARGS__)
#define TELVANE_CHECK_96(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_95(Class, __VA_ARGS__)
#define TELVANE_CHECK_97(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_96(Class, __VA_ARGS__)
#define TELVANE_CHECK_98(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_97(Class, __VA_ARGS__)
#define TELVANE_CHECK_99(Class, member, ...)                                                                 \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_98(Class, __VA_ARGS__)
#define TELVANE_CHECK_100(Class, member, ...)                                                                \
    TELVANE_CHECK_MEMBER(Class, member) TELVANE_CHECK_99(Class, __VA_ARGS__)
/// \endcond
