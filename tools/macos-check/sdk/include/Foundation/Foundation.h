// Hand-written minimal declarations of the macOS API used by this project. Not Apple's headers.
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
// stricter than the SDK: flags of different option sets cannot be combined
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
typedef unsigned short unichar;
typedef const void *CFTypeRef;
typedef const struct __CFBoolean *CFBooleanRef;
typedef long CFIndex;
typedef const struct __CFArray *CFArrayRef;
typedef unsigned char Boolean;
SDK_EXTERN const CFBooleanRef kCFBooleanTrue;
SDK_EXTERN const CFBooleanRef kCFBooleanFalse;
SDK_EXTERN void CFRelease(CFTypeRef);
SDK_EXTERN CFIndex CFArrayGetCount(CFArrayRef);
SDK_EXTERN const void *CFArrayGetValueAtIndex(CFArrayRef, CFIndex);

@class NSString, NSURL, NSData, NSNotification, NSDictionary<K, V>, NSArray<T>, NSProcessInfo,
    NSOperationQueue, NSError;
typedef NSString *NSNotificationName;
typedef NSString *NSKeyValueChangeKey;
SDK_EXTERN SEL NSSelectorFromString(NSString *name);
SDK_OPTIONS(NSUInteger, NSKeyValueObservingOptions){NSKeyValueObservingOptionNew = 1};
typedef struct
{
    unsigned long state;
    id __unsafe_unretained _Nullable *_Nullable itemsPtr;
    unsigned long *_Nullable mutationsPtr;
    unsigned long extra[5];
} NSFastEnumerationState;

@protocol NSObject
- (BOOL)isKindOfClass:(Class)c;
@end
@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState *)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)count;
@end
__attribute__((objc_root_class))
@interface NSObject<NSObject>
+ (instancetype)alloc;
- (instancetype)init;
+ (Class)class;
- (id)copy;
@end
@interface NSObject (NSKeyValueObserving)
- (void)observeValueForKeyPath:(nullable NSString *)keyPath
                      ofObject:(nullable id)object
                        change:(nullable NSDictionary<NSKeyValueChangeKey, id> *)change
                       context:(nullable void *)context;
@end
@interface NSObject (NSKeyValueObserverRegistration)
- (void)addObserver:(NSObject *)observer
         forKeyPath:(NSString *)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(nullable void *)context;
- (void)removeObserver:(NSObject *)observer forKeyPath:(NSString *)keyPath;
@end
@protocol NSCopying
@end
@interface NSString : NSObject <NSCopying>
+ (instancetype)stringWithCharacters:(const unichar *)characters length:(NSUInteger)length;
@property (readonly, nullable) const char *UTF8String;
- (BOOL)isEqualToString:(NSString *)s;
@end
@interface NSArray<__covariant T> : NSObject
+ (instancetype)arrayWithObjects:(const T _Nonnull[_Nonnull])o count:(NSUInteger)n;
@end
@interface NSDictionary<__covariant K, __covariant V> : NSObject <NSFastEnumeration>
+ (instancetype)dictionaryWithObjects:(const V _Nonnull[_Nullable])o
                              forKeys:(const K _Nonnull[_Nullable])k
                                count:(NSUInteger)n;
- (nullable V)objectForKey:(K)key;
@end
@interface NSMutableDictionary<K, V> : NSDictionary <K, V>
+ (instancetype)dictionary;
- (void)setObject:(V)object forKey:(K<NSCopying>)key;
@end
@interface NSNumber : NSObject
+ (NSNumber *)numberWithBool:(BOOL)value;
+ (NSNumber *)numberWithInteger:(NSInteger)value;
@end
@interface NSData : NSObject
@property (readonly) const void *bytes;
@property (readonly) NSUInteger length;
@end
@interface NSURL : NSObject
+ (nullable instancetype)URLWithString:(NSString *)s;
+ (NSURL *)fileURLWithPath:(NSString *)p;
@end
@interface NSError : NSObject
@property (readonly, copy) NSString *localizedDescription;
@end
@interface NSProcessInfo : NSObject
@property (class, readonly, strong) NSProcessInfo *processInfo;
@property (readonly, copy) NSString *operatingSystemVersionString;
@property (readonly) int processIdentifier;
@end
@interface NSUserDefaults : NSObject
@property (class, readonly, strong) NSUserDefaults *standardUserDefaults;
- (nullable id)objectForKey:(NSString *)name;
- (void)setObject:(nullable id)value forKey:(NSString *)name;
- (void)removeObjectForKey:(NSString *)name;
- (BOOL)synchronize;
@end
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
#pragma clang assume_nonnull end
