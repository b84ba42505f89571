// Where one is, in the address behind the #: `#/events?camera=gate&event=gate-1042`. Every view, event and filter has one.

/// @returns {parts: ['events'], query: URLSearchParams}
export function here() {
  const [path, query] = location.hash.replace(/^#\/?/, '').split('?', 2);
  return {parts: path.split('/').filter(Boolean).map(decoded), query: new URLSearchParams(query ?? '')};
}

function decoded(part) {
  try {
    return decodeURIComponent(part);
  } catch {
    return part;
  }
}

export function link(parts, query) {
  const text = new URLSearchParams();
  for (const [key, value] of query instanceof URLSearchParams ? query : Object.entries(query ?? {})) {
    if (value !== undefined && value !== null && value !== '') text.set(key, value);
  }
  const tail = String(text).replaceAll('%3A', ':').replaceAll('%2C', ',');
  return `#/${parts.map(encodeURIComponent).join('/')}${tail && `?${tail}`}`;
}

/// The same place with some of its query changed; null takes a part away.
export function linkWith(changes) {
  const {parts, query} = here();
  for (const [key, value] of Object.entries(changes)) {
    if (value === null || value === undefined || value === '') query.delete(key);
    else query.set(key, value);
  }
  return link(parts, query);
}

/// `replace`: no step back leads to where one was, as for a slider.
export function go(to, {replace = false} = {}) {
  if (to === location.hash) return;
  if (replace) {
    history.replaceState(history.state, '', to);
    window.dispatchEvent(new HashChangeEvent('hashchange'));
  } else {
    location.hash = to;
  }
}
