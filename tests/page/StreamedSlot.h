#pragma once

#include "page/EngineWindow.h"

#include <QString>

namespace quellora {

/// Compares the slot with a render of everything it has been given, without highlighted code.
inline const QString streamedSlotHelpers = QStringLiteral(R"(
    window.slot = document.getElementById('streaming-response');
    window.whole = document.createElement('div');
    window.hljs = { highlightElement() {}, highlightAuto() { return {}; }, getLanguage() {} };
    window.withoutGroups = () => {
        if (!slot.querySelector('.group'))
            return slot.innerHTML;
        const copy = slot.cloneNode(true);
        for (const group of [...copy.querySelectorAll('.group')].reverse()) {
            if (group.parentNode.nodeName === 'PRE') {
                group.parentNode.lastChild.prepend(...group.firstChild.childNodes);
                group.remove();
            } else {
                group.replaceWith(...group.childNodes);
            }
        }
        return copy.innerHTML;
    };
    /// What differs while the answer grows by @p step characters, or by up to twice as many if there is
    /// a @p seed, and in the end; empty if nothing. Yields after each comparison.
    window.differences = function* (text, step, seed) {
        let state = seed;
        const nextStep = () => {
            state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
            return seed ? 1 + (state >>> 8) % (2 * step) : step;
        };
        for (let start = 0, end = 0; start < text.length; start = end) {
            end += nextStep();
            answers.append(text.slice(start, end));
            answers.show(whole, text.slice(0, end));
            if (withoutGroups() !== whole.innerHTML)
                return [end, withoutGroups(), whole.innerHTML].join('\n----\n');
            yield;
        }
        answers.finish();
        const isSame = slot.childNodes.length === whole.childNodes.length &&
            [...slot.childNodes].every((node, i) => node.isEqualNode(whole.childNodes[i]));
        return isSame ? '' : 'the final tree is another one';
    };
    /// Continues window.comparison for 100 ms: false if there is more to do, else its result.
    window.continued = () => {
        const end = performance.now() + 100;
        do {
            const { done, value } = comparison.next();
            if (done)
                return value;
        } while (performance.now() < end);
        return false;
    };
)");

/// Result of a comparison, given as the generator that makes it. Runs in portions, so that a page
/// that compares for long does not count as silent.
inline QString comparisonResult(EngineWindow &engine, const QString &generator)
{
    QVariant result = engine.value(QStringLiteral("comparison = %1; false").arg(generator));
    while (result == QVariant(false))
        result = engine.value(QStringLiteral("continued()"));
    return result.isValid() ? result.toString() : QStringLiteral("the page does not answer");
}

} // namespace quellora
