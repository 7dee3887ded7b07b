#include "platform/FreedMemory.h"
#include "support/FreedBlocks.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

#include <cstdlib>
#include <malloc.h>
#include <memory>

using namespace quellora;

namespace {

using Block = std::unique_ptr<void, decltype(&std::free)>;

Block block(std::size_t size)
{
    // The compiler must not leave it out.
    static void *volatile latest = nullptr;
    latest = std::malloc(size);
    return {latest, &std::free};
}

/// Blocks that go back to the system by themselves.
std::size_t separateBlocks()
{
    return mallinfo2().hblks;
}

} // namespace

class TestFreedMemory : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void largeBlocksGoBackHoweverOftenTheyAreUsed()
    {
        const Block first = block(std::size_t{64} << 20);
        QVERIFY(first);
        QVERIFY(separateBlocks() > 0);
        giveBackFreedMemory();
        // The library would keep blocks of this size from now on.
        block(std::size_t{16} << 20).reset();
        const std::size_t before = separateBlocks();
        const Block second = block(std::size_t{4} << 20);
        QVERIFY(second);
        QCOMPARE(separateBlocks(), before + 1);
    }

    void whatLiesAmongBlocksInUseGoesBackAtOnce()
    {
        const FreedBlocks blocks;
        const std::size_t before = FreedBlocks::resident();
        giveBackFreedPages();
        QVERIFY(FreedBlocks::resident() + FreedBlocks::size / 2 < before);
    }
};

QUELLORA_TEST(QCoreApplication, TestFreedMemory)
#include "test_freed_memory.moc"
