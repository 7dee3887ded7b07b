// Hand-written minimal declarations of the macOS API this project uses. NOT Apple's headers.
#pragma once
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#ifdef __cplusplus
#define SDK_EXTERN extern "C"
#else
#define SDK_EXTERN extern
#endif
#define SDK_ENUM(T, N)                                                                             \
    enum N : T;                                                                                    \
    typedef enum N N;                                                                              \
    enum __attribute__((enum_extensibility(open))) N : T
#if defined(SDK_STRICT) && defined(__cplusplus)
// stricter than the SDK: flags of different option sets do not mix
#define SDK_OPTIONS(T, N)                                                                          \
    enum N : T;                                                                                    \
    constexpr N operator|(N a, N b)                                                                \
    {                                                                                              \
        return N(T(a) | T(b));                                                                     \
    }                                                                                              \
    constexpr N operator&(N a, N b)                                                                \
    {                                                                                              \
        return N(T(a) & T(b));                                                                     \
    }                                                                                              \
    constexpr N operator~(N a)                                                                     \
    {                                                                                              \
        return N(~T(a));                                                                           \
    }                                                                                              \
    enum __attribute__((flag_enum)) N : T
#else
#define SDK_OPTIONS(T, N)                                                                          \
    typedef T N;                                                                                   \
    enum __attribute__((flag_enum)) : N // what the SDK does in C++
#endif
#if defined(__APPLE__)
#include <objc/objc.h> // open-source runtime header (BOOL, YES, nil, SEL)
#else
typedef signed char BOOL;
#define YES __objc_yes
#define NO __objc_no
#define nil nullptr
#endif
#pragma clang assume_nonnull begin
typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double CGFloat;
typedef double NSTimeInterval;
struct CGPoint
{
    CGFloat x, y;
};
struct CGSize
{
    CGFloat width, height;
};
struct CGRect
{
    CGPoint origin;
    CGSize size;
};
typedef CGPoint NSPoint;
typedef CGSize NSSize;
typedef CGRect NSRect;
static inline NSSize NSMakeSize(CGFloat w, CGFloat h)
{
    return {w, h};
}
static inline NSRect NSMakeRect(CGFloat x, CGFloat y, CGFloat w, CGFloat h)
{
    return {{x, y}, {w, h}};
}
typedef const struct __CFString *CFStringRef;
typedef const struct __CFDictionary *CFDictionaryRef;
typedef unsigned char Boolean;

@class NSString, NSURL, NSData, NSNotification, NSDictionary<K, V>, NSArray<T>, NSProcessInfo,
    NSOperationQueue;

@protocol NSObject
@end
__attribute__((objc_root_class))
@interface NSObject<NSObject>
+ (instancetype)alloc;
- (instancetype)init;
+ (instancetype)new;
+ (Class)class;
- (BOOL)isKindOfClass:(Class)c;
- (BOOL)respondsToSelector:(SEL)s;
@end
@interface NSString : NSObject
+ (nullable instancetype)stringWithUTF8String:(const char *)s;
@property (readonly, nullable) const char *UTF8String;
- (BOOL)isEqualToString:(NSString *)s;
@end
@interface NSArray<T> : NSObject
+ (instancetype)arrayWithObjects:(const T _Nonnull[_Nonnull])o count:(NSUInteger)n;
@end
@interface NSDictionary<K, V> : NSObject
+ (instancetype)dictionaryWithObjects:(const V _Nonnull[_Nullable])o
                              forKeys:(const K _Nonnull[_Nullable])k
                                count:(NSUInteger)n;
@end
@interface NSData : NSObject
@property (readonly) const void *bytes;
@property (readonly) NSUInteger length;
@end
@interface NSURL : NSObject
+ (nullable instancetype)URLWithString:(NSString *)s;
+ (NSURL *)fileURLWithPath:(NSString *)p;
@end
@interface NSProcessInfo : NSObject
@property (class, readonly, strong) NSProcessInfo *processInfo;
@property (readonly, copy) NSString *operatingSystemVersionString;
@end
typedef NSString *NSNotificationName;
@interface NSNotification : NSObject
@end
@interface NSOperationQueue : NSObject
@property (class, readonly, strong) NSOperationQueue *mainQueue;
@end
@interface NSNotificationCenter : NSObject
@property (class, readonly, strong) NSNotificationCenter *defaultCenter;
- (id<NSObject>)addObserverForName:(nullable NSNotificationName)name
                            object:(nullable id)obj
                             queue:(nullable NSOperationQueue *)q
                        usingBlock:(void (^)(NSNotification *n))block;
- (void)removeObserver:(id)o;
@end
@interface NSDistributedNotificationCenter : NSNotificationCenter
+ (NSDistributedNotificationCenter *)defaultCenter;
@end
#pragma clang assume_nonnull end
