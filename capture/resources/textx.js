// Reduces the page to its readable text: the title, then the headings,
// paragraphs, lists, quotations and preformatted blocks of its main content,
// in order, as plain elements. Scripts, styles, navigation, forms, media and
// anything that looks like an advertisement or a sidebar go.
(function () {
    'use strict';

    var DROP = 'script, style, noscript, template, link, meta, iframe, frame, object, embed, ' +
        'nav, aside, header, footer, form, button, input, select, textarea, ' +
        'img, picture, figure > img, video, audio, canvas, svg, map, ' +
        '[role=navigation], [role=banner], [role=complementary], [role=contentinfo], ' +
        '[role=search], [aria-hidden=true], [hidden]';
    var ADLIKE = /(^|[\s_-])(ad|ads|advert|advertisement|adslot|banner|sponsor|sponsored|promo|promoted|sidebar|social|share|sharing|cookie|consent|newsletter|related|popup|modal|comments?)($|[\s_-])/i;
    var BLOCKS = 'h1, h2, h3, h4, h5, h6, p, li, blockquote, pre, dt, dd, figcaption';

    function clean(text) {
        return (text || '').replace(/\s+/g, ' ').trim();
    }

    function adLike(el) {
        var names = (typeof el.className === 'string' ? el.className : '') + ' ' + (el.id || '');
        return ADLIKE.test(names);
    }

    var title = clean(document.title);
    var source = document.querySelector('article') || document.querySelector('main') ||
        document.querySelector('[role=main]') || document.body;
    if (!source)
        return;
    var root = source.cloneNode(true);

    root.querySelectorAll(DROP).forEach(function (el) { el.remove(); });
    Array.prototype.slice.call(root.querySelectorAll('*')).forEach(function (el) {
        if (el.isConnected !== false && el.parentNode && adLike(el))
            el.remove();
    });

    var out = document.createElement('div');
    var list = null;
    var lastText = null;
    if (title) {
        var h = document.createElement('h1');
        h.textContent = title;
        out.appendChild(h);
        lastText = title;
    }
    root.querySelectorAll(BLOCKS).forEach(function (el) {
        // A block inside another kept block is already part of it.
        var up = el.parentElement;
        while (up && up !== root) {
            if (up.matches(BLOCKS))
                return;
            up = up.parentElement;
        }
        var text = el.tagName === 'PRE' ? el.textContent : clean(el.textContent);
        if (!text || text === lastText)
            return;
        lastText = text;
        var tag = el.tagName.toLowerCase();
        var node;
        if (tag === 'li') {
            var kind = el.parentElement && el.parentElement.tagName === 'OL' ? 'ol' : 'ul';
            if (!list || list.tagName.toLowerCase() !== kind) {
                list = document.createElement(kind);
                out.appendChild(list);
            }
            node = document.createElement('li');
            node.textContent = text;
            list.appendChild(node);
            return;
        }
        list = null;
        node = document.createElement(tag === 'dt' || tag === 'dd' || tag === 'figcaption' ? 'p' : tag);
        node.textContent = text;
        out.appendChild(node);
    });

    // A page without any such blocks keeps its plain text.
    if (out.childNodes.length <= (title ? 1 : 0)) {
        clean(root.innerText || root.textContent).split(/\n+/).forEach(function (line) {
            line = clean(line);
            if (!line)
                return;
            var p = document.createElement('p');
            p.textContent = line;
            out.appendChild(p);
        });
    }

    var head = document.head || document.documentElement.insertBefore(document.createElement('head'),
                                                                      document.documentElement.firstChild);
    while (head.firstChild)
        head.removeChild(head.firstChild);
    var meta = document.createElement('meta');
    meta.setAttribute('charset', 'utf-8');
    head.appendChild(meta);
    var t = document.createElement('title');
    t.textContent = title;
    head.appendChild(t);
    var style = document.createElement('style');
    style.textContent = 'body { font: 12pt/1.5 serif; margin: 2em; color: #000; background: #fff; } ' +
        'h1, h2, h3, h4, h5, h6 { font-family: sans-serif; } pre { white-space: pre-wrap; }';
    head.appendChild(style);

    var body = document.createElement('body');
    while (out.firstChild)
        body.appendChild(out.firstChild);
    if (document.body)
        document.documentElement.replaceChild(body, document.body);
    else
        document.documentElement.appendChild(body);
    return true;
})();
