// The host's interface: one place for its root, its token and its refusals.

/// Relative, so that a base path behind a proxy needs no setting.
export const root = new URL('api/v1/', document.baseURI);

export class ApiError extends Error {
  constructor(status, message, retryAfter) {
    super(message);
    this.status = status; ///< 0: nobody answered
    this.retryAfter = retryAfter; ///< seconds, 0: not said
  }
}

let token = null;
let refused = () => {};

/// Of the session; goes along with whatever changes something.
export function setToken(text) {
  token = text;
}
/// Called where somebody has to sign in (again).
export function onRefused(call) {
  refused = call;
}

export function url(path, query) {
  const address = new URL(path, root);
  for (const [key, value] of Object.entries(query ?? {})) {
    if (value !== undefined && value !== null && value !== '') address.searchParams.set(key, value);
  }
  return address;
}

/// @returns the response, whose status is a good one  @throws ApiError
export async function send(method, address, body, options) {
  const headers = {};
  if (method !== 'GET' && token) headers['X-Fleifeisa-Token'] = token;
  if (body !== undefined) headers['Content-Type'] = 'application/json';
  let response;
  try {
    response = await fetch(address, {
      method, headers, credentials: 'same-origin', body: body === undefined ? undefined : JSON.stringify(body), ...options,
    });
  } catch (error) {
    if (error.name === 'AbortError') throw error;
    throw new ApiError(0, '', 0);
  }
  if (response.ok) return response;
  let message = '';
  try {
    message = (await response.json()).error ?? '';
  } catch { /* an answer of something between us and the host */ }
  if (response.status === 401 && !options?.signingIn) refused();
  throw new ApiError(response.status, message, Number(response.headers.get('Retry-After')) || 0);
}

/// JSON of a path, null where the answer has no body.
export async function ask(method, path, {query, body, ...options} = {}) {
  const response = await send(method, url(path, query), body, options);
  return response.status === 204 ? null : response.json();
}

export const get = (path, query, options) => ask('GET', path, {query, ...options});

export const cameraPath = (camera, rest = '') => `cameras/${encodeURIComponent(camera)}${rest && `/${rest}`}`;

/// Path of an event of that id (CAMERA-NUMBER); null where it is no id.
export function eventPath(id, rest = '') {
  const match = /^([A-Za-z0-9_-]{1,64})-([0-9]{1,19})$/.exec(id ?? '');
  return match && cameraPath(match[1], `events/${match[2]}${rest && `/${rest}`}`);
}
