// What the page knows, in one place. Views read it and are told when a part of it is another one.

export const model = {
  session: null, ///< as the interface gives it
  cameras: new Map(), ///< by name, in the configuration's order
  connected: false, ///< changes come in
  ahead: 0, ///< milliseconds by which the host's clock is ahead of this one
};

const listeners = new Map();

/// Topics: cameras (all of them), camera (one), event, deleted, review, connection, missed (something may have been),
/// session, signedout, awake, theme, changed (a camera's zones, lines or values). @returns what ends it
export function on(topic, call) {
  if (!listeners.has(topic)) listeners.set(topic, new Set());
  listeners.get(topic).add(call);
  return () => listeners.get(topic).delete(call);
}

export function tell(topic, value) {
  for (const call of [...(listeners.get(topic) ?? [])]) call(value);
}

export const isAdmin = () => model.session?.role === 'admin';
/// Milliseconds since 1970 by the host's clock.
export const now = () => Date.now() + model.ahead;
export const titleOf = (camera) => model.cameras.get(camera)?.title || camera;

export function ruleTitle(camera, rule) {
  const known = model.cameras.get(camera);
  return [...(known?.zones ?? []), ...(known?.lines ?? [])].find((each) => each.name === rule)?.title || rule;
}

/// What belongs to this browser alone.
export const settings = {
  read(name, otherwise) {
    try {
      return JSON.parse(localStorage.getItem(`fleifeisa.${name}`)) ?? otherwise;
    } catch {
      return otherwise;
    }
  },
  write(name, value) {
    try {
      localStorage.setItem(`fleifeisa.${name}`, JSON.stringify(value));
    } catch { /* storage is off: it holds for this visit */ }
  },
};
