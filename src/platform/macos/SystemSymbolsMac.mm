#include "platform/macos/SystemSymbolsMac.h"

#include "platform/macos/Cocoa.h"

#include <cmath>

namespace quellora {
namespace {

NSImage *symbolImage(const QString &name, double points)
{
    NSImage *symbol = [NSImage imageWithSystemSymbolName:Cocoa::string(name)
                                accessibilityDescription:nil];
    NSImageSymbolConfiguration *size =
        [NSImageSymbolConfiguration configurationWithPointSize:points weight:NSFontWeightRegular];
    return [symbol imageWithSymbolConfiguration:size];
}

/// Renders the image at the given scale.
NSData *drawnAsPng(NSImage *image, int scale)
{
    const NSSize size = image.size;
    NSBitmapImageRep *pixels =
        [[NSBitmapImageRep alloc] initWithBitmapDataPlanes:nullptr
                                                pixelsWide:NSInteger(std::ceil(size.width * scale))
                                                pixelsHigh:NSInteger(std::ceil(size.height * scale))
                                             bitsPerSample:8
                                           samplesPerPixel:4
                                                  hasAlpha:YES
                                                  isPlanar:NO
                                            colorSpaceName:NSDeviceRGBColorSpace
                                               bytesPerRow:0
                                              bitsPerPixel:0];
    if (!pixels)
        return nil;
    // The size in points determines the scale of the drawing context.
    pixels.size = NSMakeSize(double(pixels.pixelsWide) / scale, double(pixels.pixelsHigh) / scale);
    [NSGraphicsContext saveGraphicsState];
    NSGraphicsContext.currentContext = [NSGraphicsContext graphicsContextWithBitmapImageRep:pixels];
    [image drawInRect:NSMakeRect(0, 0, size.width, size.height)];
    [NSGraphicsContext restoreGraphicsState];
    return [pixels representationUsingType:NSBitmapImageFileTypePNG properties:@{}];
}

} // namespace

QImage SystemSymbolsMac::image(const QString &name, double points, int scale) const
{
    NSImage *symbol = symbolImage(name, points);
    NSData *png = symbol ? drawnAsPng(symbol, scale) : nil;
    if (!png)
        return {};
    QImage image = QImage::fromData(static_cast<const uchar *>(png.bytes), int(png.length), "PNG");
    image.setDevicePixelRatio(scale);
    return image;
}

} // namespace quellora
