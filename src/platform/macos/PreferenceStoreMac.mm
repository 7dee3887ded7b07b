#include "platform/macos/PreferenceStoreMac.h"

#include "platform/macos/Cocoa.h"

namespace quellora {
namespace {

QVariant variant(id value)
{
    if (!value)
        return {};
    if ([value isKindOfClass:NSString.class])
        return Cocoa::string(static_cast<NSString *>(value));
    // Compared by identity: numbers have the same class and may be equal to booleans.
    const CFTypeRef reference = (__bridge CFTypeRef)value;
    if (reference == kCFBooleanTrue || reference == kCFBooleanFalse)
        return reference == kCFBooleanTrue;
    if ([value isKindOfClass:NSDictionary.class]) {
        QVariantMap map;
        NSDictionary<id, id> *dictionary = value;
        for (id key in dictionary) {
            if ([key isKindOfClass:NSString.class])
                map.insert(Cocoa::string(static_cast<NSString *>(key)),
                           variant([dictionary objectForKey:key]));
        }
        return map;
    }
    // A valid variant of a type that this program never stores.
    return QVariant::fromValue(nullptr);
}

id object(const QVariant &value)
{
    if (value.typeId() == QMetaType::Bool)
        return [NSNumber numberWithBool:value.toBool()];
    if (value.typeId() == QMetaType::QVariantMap) {
        NSMutableDictionary<NSString *, id> *dictionary = [NSMutableDictionary dictionary];
        const QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            [dictionary setObject:object(it.value()) forKey:Cocoa::string(it.key())];
        return dictionary;
    }
    return Cocoa::string(value.toString());
}

} // namespace

QVariant PreferenceStoreMac::value(const QString &key) const
{
    return variant([NSUserDefaults.standardUserDefaults objectForKey:Cocoa::string(key)]);
}

void PreferenceStoreMac::setValue(const QString &key, const QVariant &value)
{
    [NSUserDefaults.standardUserDefaults setObject:object(value) forKey:Cocoa::string(key)];
}

void PreferenceStoreMac::removeValue(const QString &key)
{
    [NSUserDefaults.standardUserDefaults removeObjectForKey:Cocoa::string(key)];
}

bool PreferenceStoreMac::synchronize()
{
    return [NSUserDefaults.standardUserDefaults synchronize];
}

} // namespace quellora
